#include "tools/qelc/body_commands.h"

#include "protocol/commands.h"

namespace {
std::string manager_body(const command_options &given)
{
    return manager_document(given.manager);
}

std::string pair_body(const command_options &given)
{
    return pair_document(given.manager.guid, given.client_guid);
}

std::string channel_body(const command_options &given)
{
    return channel_document(given.channel);
}

std::string alias_body(const command_options &given)
{
    return alias_document(given.alias);
}

constexpr body_command table[] = {
    {command::add_client, "give the host a manager", add_manager_options, manager_body},
    {command::del_client, "release the host from its manager", add_pair_options, pair_body},
    {command::establish_channels, "log the host in to an iSCSI target", add_channel_options, channel_body},
    {command::refresh_server, "update what the host knows of its manager", add_manager_options, manager_body},
    {command::rename_client, "give the host another alias", add_alias_option, alias_body},
};
} // namespace

std::span<const body_command> body_commands()
{
    return table;
}
