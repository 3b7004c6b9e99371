#include "tools/qelc/verbs/init.h"

#include "base/log.h"
#include "tools/qelc/new_config.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

outcome init(const verb_options &given)
{
    log_to_stderr(LOG_WARNING);
    const std::string &path = given.config_file;
    qel_t content;
    content.client_port = given.client_port;
    content.server_port = given.server_port;
    const std::string ports =
        "ports " + std::to_string(content.client_port) + " and " + std::to_string(content.server_port);
    const bool is_there = access(path.c_str(), F_OK) == 0;
    const int error = is_there ? EEXIST : given.dry_run ? 0 : write_new_config(path, content);
    if (error != 0)
        throw verb_end{exit_refused,
                       path + ": " + (error == EEXIST ? "it is there already, and stays" : strerror(error)),
                       "qelc check-config says whether the daemon can use it"};
    const std::string text = given.dry_run
                                 ? "written, with " + ports
                                 : "is written, with " + ports + " and the ClientGUID " + *content.guid;
    return {.items = {{"file", path, "", exit_ok, text}}, .is_dry_run = given.dry_run};
}
