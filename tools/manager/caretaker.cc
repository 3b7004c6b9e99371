#include "tools/manager/caretaker.h"

#include "base/thread.h"
#include "tools/common/host_document.h"
#include "tools/manager/answer.h"
#include "tools/manager/commands.h"
#include "tools/manager/state_folder.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>

struct caretaker {
    std::string folder;
    std::shared_ptr<host_table> hosts;
    unique_fd socket;
    unique_fd end; // readable when the thread is to end
    time_t start = time(nullptr);
    time_t saved = time(nullptr);
    std::string saved_document;
    int save_failure = 0; // of the last time; told once
    pthread_t thread{};
};

namespace {
// What a killed service forgets at most.
constexpr time_t seconds_between_saves = 10;

void save(caretaker &self)
{
    self.saved = time(nullptr);
    std::string document;
    {
        const std::lock_guard held(self.hosts->lock);
        document = hosts_document(self.hosts->hosts);
    }
    if (document == self.saved_document)
        return;
    const int failure = save_hosts(self.folder, document);
    if (failure == 0)
        self.saved_document = std::move(document);
    else if (failure != self.save_failure)
        complain(self.folder, std::string("the list of hosts cannot be saved: ") + strerror(failure));
    self.save_failure = failure;
}

void look_around(caretaker &self)
{
    const time_t now = time(nullptr);
    print_news(note_silence(*self.hosts, self.start, now));
    if (now - self.saved >= seconds_between_saves || now < self.saved)
        save(self);
}

void *take_care(void *arg)
{
    caretaker &self = *static_cast<caretaker *>(arg);
    for (;;) {
        pollfd waiting[] = {{self.socket.get(), POLLIN, 0}, {self.end.get(), POLLIN, 0}};
        constexpr int look_interval = 1000; // milliseconds
        poll(waiting, std::size(waiting), look_interval);
        if (waiting[1].revents)
            break;
        if (waiting[0].revents)
            answer_command(self.socket, *self.hosts);
        look_around(self);
    }
    return nullptr;
}
} // namespace

void caretaker_end::operator()(caretaker *running) const
{
    const std::unique_ptr<caretaker> self(running);
    const uint64_t one = 1;
    if (write(self->end.get(), &one, sizeof one) == sizeof one)
        pthread_join(self->thread, nullptr);
    save(*self);
}

caretaker_holder start_caretaker(const std::string &folder, std::shared_ptr<host_table> hosts)
{
    mkdir(folder.c_str(), S_IRWXU); // a service manager has made it
    auto self = std::make_unique<caretaker>();
    self->folder = folder;
    self->hosts = std::move(hosts);
    self->socket = open_socket(folder);
    self->end.reset(eventfd(0, EFD_CLOEXEC));
    if (!self->socket.is_open())
        return nullptr;
    load_hosts(folder, *self->hosts);
    const int failure = self->end.is_open() ? start_thread(&self->thread, take_care, self.get()) : errno;
    if (failure == 0)
        return caretaker_holder(self.release());
    complain(folder, strerror(failure));
    return nullptr;
}
