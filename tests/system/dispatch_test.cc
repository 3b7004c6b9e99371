// Requests and replies on both sockets: what is answered, what is refused, and what ends the worker.
#include "tests/support/system_test.h"

using std::string_literals::operator""s;

namespace {
constexpr uint32_t nop_command = 57;

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

TEST_F(dispatch, OtherVersionIsRefusedWithoutItsCommand)
{
    daemon.start();
    const pid_t worker = qelcd::worker();
    const std::string refusal = "\2\0\1\0\0\0\xff\xff\0\0\0\0\0\0\0\0"s;
    size_t mark = 0;
    for (const char version : {'\0', '\1', '\3', '\xff'}) {
        const std::string request = version + "\0\0\0\0\0\xff\xff\x39\0\0\0\0\0\0\0"s;
        EXPECT_EQ(bytes_after(connect_tcp(), request), refusal);
        mark = log.expect(LOG_ERR, "Received command from incompatible Tessaron server.", mark);
    }
    EXPECT_EQ(qelcd::worker(), worker);
}

TEST_F(dispatch, Code0GetsNoReply)
{
    daemon.start();
    const pid_t worker = qelcd::worker();
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
        mark = log.expect(LOG_INFO, "Received command code: " + std::to_string(code) + ".", mark);
        mark = log.expect(LOG_INFO, "WTERMSIG: [6]", mark);
        mark = log.expect(LOG_INFO, "Create working process.", mark);
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
    EXPECT_TRUE(ask(connect_tcp("127.0.0.3"), request_head(nop_command)));
}

TEST_F(dispatch, DebugModeTracesTheExchange)
{
    daemon.start({"-d"});
    const std::string request = frame(request_head(nop_command, 5), "hello");
    size_t mark = log.size(); // the daemon begins to read as soon as it has the connection
    const peer connection = connect_tcp();
    const auto expect_trace = [&](const std::string &function, const std::string &message) {
        mark = log.expect_match(LOG_DEBUG, "func: " + function + " line: \\d+ msg: " + message, mark);
    };

    connection.send(request.substr(0, 10));
    expect_trace("qelc_readn", "count:16");
    expect_trace("qelc_readn", "total:0 left:16");
    expect_trace("qelc_readn", "Read from fd\\(\\d+\\)");
    expect_trace("qelc_readn", "Read from fd\\(\\d+\\) done");
    expect_trace("qelc_readn", "total:10 left:6");
    connection.send(request.substr(10));
    expect_trace(".*", "Recv head: ret=0, cmd=57, data_len=5");
    expect_trace("qelc_readn", "count:5");
    expect_trace(".*", "Recv xml: hello");
    expect_trace(".*", "CMD:57");
    expect_trace("qelc_writen", "Send to fd\\(\\d+\\)");
    expect_trace("qelc_writen", "Send to fd\\(\\d+\\) done");
    expect_trace(".*", "Send head: ret=0, cmd=57, data_len=0");
}
