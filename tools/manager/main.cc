// standin-manager: plays the manager's part towards a daemon. It is installed as qelc-manager.

#include "tools/manager/commands.h"
#include "tools/manager/hosts.h"
#include "tools/manager/serve.h"

int main(int argc, char **argv)
{
    init_tool();
    options wanted;
    if (const std::optional<int> end = parse_command_line(argc, argv, wanted))
        return *end;
    switch (wanted.task) {
    case manager_task::scan:
        return scan(wanted.host);
    case manager_task::adopt:
        return adopt(wanted.host, wanted.manager);
    case manager_task::release:
        return release(wanted.host, wanted.manager.guid, wanted.client_guid, wanted.state);
    case manager_task::hosts:
        return list_hosts(wanted.state, wanted.as_json);
    case manager_task::forget:
        return forget(wanted.state, wanted.forgotten);
    case manager_task::serve:
        break;
    }
    return serve(wanted.serve);
}
