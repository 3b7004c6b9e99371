// Requests and replies on both sockets: what is answered, what is refused, and what ends the worker.
#include "tests/support/system_test.h"

using std::string_literals::operator""s;

namespace {
class dispatch : public system_test {};

std::string bytes_after(const peer &connection, const std::string &request)
{
    EXPECT_TRUE(connection.send(request));
    const auto answer = connection.receive();
    EXPECT_TRUE(answer.closed);
    return answer.bytes;
}
} // namespace

TEST_F(dispatch, ReplyRepeatsOriginAndCommandOnBothSockets)
{
    daemon.start();
    const std::string nop = "\2\0\0\0\0\0\x07\x01\x39\0\0\0\0\0\0\0"s;
    EXPECT_EQ(bytes_after(connect_tcp(), nop), nop);
    EXPECT_EQ(bytes_after(connect_unix(), nop), nop);
}

TEST_F(dispatch, ConnectionOfAManagerThatIsGoneIsFoundOut)
{
    daemon.start();
    const peer silent = connect_tcp();
    ASSERT_TRUE(silent.send("\2"));
    const std::string accepted = "ss -Htno state established sport = :" + std::to_string(client_port);
    EXPECT_TRUE(eventually([&] {
        return output_of(accepted).find("timer:(keepalive,") != std::string::npos;
    })) << output_of(accepted);
    log.tolerate("Failed to receive msg, * bytes left");
}

TEST_F(dispatch, OtherVersionIsRefusedWithoutItsCommandAndCode0GetsNoReply)
{
    daemon.start();
    const pid_t worker = qelcd::worker();
    size_t mark = 0;
    for (const char version : {'\0', '\1', '\3', '\xff'}) {
        const std::string request = version + "\0\0\0\0\0\xff\xff\x39\0\0\0\0\0\0\0"s;
        EXPECT_EQ(bytes_after(connect_tcp(), request), "\2\0\1\0\0\0\xff\xff\0\0\0\0\0\0\0\0"s);
        mark = log.expect(LOG_ERR, "Received command from incompatible Tessaron server.", mark);
    }
    EXPECT_EQ(bytes_after(connect_unix(), frame(request_head(0))), "");
    log.expect(LOG_ERR, "Invalid cmd: 0");
    EXPECT_TRUE(is_serving());
    EXPECT_EQ(qelcd::worker(), worker);
}

TEST_F(dispatch, UnknownCodeEndsTheWorkerAndANewOneServes)
{
    daemon.start();
    size_t mark = 0;
    for (const uint32_t code : {30009U, 30012U, 0xFFFFFFFFU}) {
        const pid_t worker = qelcd::worker();
        EXPECT_EQ(bytes_after(connect_tcp(), frame(request_head(code))), "");
        mark = log.expect(LOG_INFO, "WTERMSIG: [6]", mark);
        qelcd::wait_for_new_worker(worker);
        ASSERT_FALSE(HasFailure()) << code;
    }
}

TEST_F(dispatch, FilteredAddressIsClosedWithoutAWord)
{
    write_config({.filter = {"192.0.2.1", "127.0.0.2"}});
    daemon.start(); // which asks over 127.0.0.1 and over the UNIX socket
    const auto answer = connect_tcp("127.0.0.2").receive();
    EXPECT_TRUE(answer.closed);
    EXPECT_EQ(answer.bytes, "");
    EXPECT_TRUE(ask(connect_tcp("127.0.0.3"), request_head(command::nop_command)));
}

TEST_F(dispatch, DebugModeTracesTheExchange)
{
    daemon.start({"-d"});
    const size_t mark = log.size();
    EXPECT_TRUE(ask(connect_tcp(), request_head(command::nop_command, 5), "hello"));
    texts steps = {"qelc_readn line: * msg: total:0 left:16", "* msg: Recv head: ret=0, cmd=57, data_len=5",
                   "* msg: Recv xml: hello", "qelc_writen line: * msg: Send to fd(*) done",
                   "* msg: Send head: ret=0, cmd=57, data_len=0"};
    for (std::string &step : steps)
        step.insert(0, "func: ");
    log.expect_steps(LOG_DEBUG, steps, mark);
}
