#include "tools/bodies.h"

#include "base/xml.h"
#include "tools/exchange.h"

#include <algorithm>
#include <set>
#include <span>

namespace {
bool is_any(const std::string &)
{
    return true;
}

bool is_portal(const std::string &text)
{
    constexpr uint16_t iscsi_port = 3260;
    const std::optional<endpoint> portal = parse_endpoint(text, iscsi_port);
    return portal && is_address(portal->host);
}

struct body_option {
    const char *name;
    const char *value; // as the help calls it
    bool (*fits)(const std::string &value);
};

constexpr body_option guid{"guid", "GUID", is_any};
constexpr body_option client_guid{"client-guid", "GUID", is_any};
constexpr body_option ip{"ip", "ADDR", is_address};
constexpr body_option alias{"alias", "TEXT", is_any};
constexpr body_option initiator_iqn{"initiator-iqn", "IQN", is_any};
constexpr body_option initiator_ip{"initiator-ip", "ADDR", is_address};
constexpr body_option target_iqn{"target-iqn", "IQN", is_any};
constexpr body_option target_ip{"target-ip", "ADDR[:PORT]", is_portal};

enum class times { once, at_most_once, at_least_once };

struct option_use {
    body_option option;
    times allowed;
};

struct body_kind {
    uint32_t code;
    std::span<const option_use> uses;
    std::string (*build)(const option_values &given); // what GIVEN lacks may be lacking
};

// For an option that the table wants once.
const std::string &only(const option_values &given, const body_option &option)
{
    return given.at(option.name).front();
}

// --- The documents -----------------------------------------------------------------------------------

std::string build_manager(const option_values &given)
{
    manager_record manager{only(given, guid), given.at(ip.name), std::nullopt};
    if (given.contains(target_iqn.name))
        manager.target_iqn = only(given, target_iqn);
    return manager_document(manager);
}

std::string build_pair(const option_values &given)
{
    return pair_document(only(given, guid), only(given, client_guid));
}

std::string build_alias(const option_values &given)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(xml_add_element(xml_root(doc), "Client"), "Alias", only(given, alias));
    return xml_to_text(doc);
}

std::string build_channel(const option_values &given)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *channel = xml_add_element(xml_root(doc), "Channel");
    xml_add_attribute(channel, "InitiatorIqn", only(given, initiator_iqn));
    xml_add_attribute(channel, "TargetIqn", only(given, target_iqn));
    xmlNode *path = xml_add_element(channel, "Path");
    xml_add_attribute(path, "InitiatorIP", only(given, initiator_ip));
    xml_add_attribute(path, "TargetIP", only(given, target_ip));
    return xml_to_text(doc);
}

// --- The table ---------------------------------------------------------------------------------------

constexpr option_use manager_uses[] = {
    {guid, times::once}, {ip, times::at_least_once}, {target_iqn, times::at_most_once}};
constexpr option_use pair_uses[] = {{guid, times::once}, {client_guid, times::once}};
constexpr option_use alias_uses[] = {{alias, times::once}};
constexpr option_use channel_uses[] = {{initiator_iqn, times::once},
                                       {target_iqn, times::once},
                                       {initiator_ip, times::once},
                                       {target_ip, times::once}};

constexpr body_kind kinds[] = {
    {command_code("add_client"), manager_uses, build_manager},
    {command_code("del_client"), pair_uses, build_pair},
    {command_code("establish_channels"), channel_uses, build_channel},
    {command_code("refresh_server"), manager_uses, build_manager},
    {command_code("rename_client"), alias_uses, build_alias},
};

const body_kind *kind_of(uint32_t code)
{
    const auto *found = std::ranges::find(kinds, code, &body_kind::code);
    return found == std::end(kinds) ? nullptr : found;
}

// What is wrong with the values given for one option; "" for nothing.
std::string complaint(const option_use &use, const option_values &given)
{
    const std::string name = std::string("--") + use.option.name;
    const auto values = given.find(use.option.name);
    if (values == given.end())
        return use.allowed == times::at_most_once ? "" : name + " is missing";
    if (use.allowed != times::at_least_once && values->second.size() > 1)
        return name + " is given more than once";
    for (const std::string &value : values->second) {
        if (!use.option.fits(value))
            return name + " " + value + ": not " + use.option.value;
    }
    return "";
}
} // namespace

std::string manager_document(const manager_record &manager)
{
    std::string addresses;
    for (const std::string &address : manager.ips)
        addresses += (addresses.empty() ? "" : " ") + address;
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *server = xml_add_element(xml_root(doc), "Server");
    xml_add_attribute(server, "ID", manager.guid);
    xml_add_attribute(server, "IPs", addresses);
    // An empty target would be one to log in to, for the client.
    if (manager.target_iqn)
        xml_add_attribute(server, "TargetIqn", *manager.target_iqn);
    return xml_to_text(doc);
}

std::string pair_document(const std::string &server_guid, const std::string &client_guid)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(xml_add_element(xml_root(doc), "Server"), "ID", server_guid);
    xml_add_attribute(xml_add_element(xml_root(doc), "Client"), "ID", client_guid);
    return xml_to_text(doc);
}

std::vector<std::string> body_option_names()
{
    std::set<std::string> names;
    for (const body_kind &kind : kinds) {
        for (const option_use &use : kind.uses)
            names.insert(use.option.name);
    }
    return {names.begin(), names.end()};
}

std::string body_usage()
{
    std::string text;
    for (const body_kind &kind : kinds) {
        text += std::string("  ") + name_of(kind.code);
        for (const option_use &use : kind.uses) {
            const std::string option = std::string("--") + use.option.name + " " + use.option.value;
            text += use.allowed == times::at_most_once ? " [" + option + "]" : " " + option;
            text += use.allowed == times::at_least_once ? "..." : "";
        }
        text += "\n";
    }
    return text;
}

bool build_body(uint32_t code, const option_values &given, optional_text &body, std::string &error)
{
    const body_kind *kind = kind_of(code);
    const std::span<const option_use> uses = kind ? kind->uses : std::span<const option_use>();
    for (const auto &option : given) {
        const auto is_this = [&](const option_use &use) { return use.option.name == option.first; };
        if (std::ranges::none_of(uses, is_this)) {
            error = "--" + option.first + " does not belong to this command";
            return false;
        }
    }
    for (const option_use &use : uses) {
        error = complaint(use, given);
        if (!error.empty())
            return false;
    }
    if (kind)
        body = kind->build(given);
    return true;
}
