// What a window holds, for programs.
#include <nlohmann/json.hpp>

#include "encapsulation_layout.h"
#include "entry_names.h"
#include "hardware_failures.h"
#include "protocol_names.h"
#include "shown_state.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

using nlohmann::ordered_json;

ordered_json hits_json(const vlc::PacketCount &hits)
{
    return {{"packets", hits.packets}, {"bytes", hits.bytes}};
}

ordered_json nps_json(const ShownNode &node)
{
    ordered_json all = ordered_json::array();
    for (size_t np = 0; np < node.nps.size(); ++np)
        all.push_back({{"np", np},
                       {"row", node.nps[np].is_there},
                       {"as_stored", node.nps[np].is_as_stored},
                       {"hits", hits_json(node.nps[np].hits)}});
    return all;
}

ordered_json result_json(const app_node &stored)
{
    const auto found = encapsulation_layout::encapsulation_in({stored.result, stored.result_len});
    if (!found)
        return nullptr;
    return {{"protocol", protocol_name(found->protocol)},
            {"source", endpoint_text(found->source, found->source_port)},
            {"destination", endpoint_text(found->destination, found->destination_port)}};
}

ordered_json node_json(const ShownNode &node)
{
    const app_node &stored = node.stored.content.app_node;
    ordered_json object{{"entry_id", stored.entry_id},
                        {"table", table_name(stored.table_type)},
                        {"hw_index", stored.hw_index}};
    if (node.stored.has_row) {
        object["key"] = spaced_hex({stored.key, stored.key_len});
        object["name"] = key_name(stored.table_type, {stored.key, stored.key_len});
        object["result"] = spaced_hex({stored.result, stored.result_len});
        object["encapsulation"] = result_json(stored);
    }
    object["nps"] = nps_json(node);
    return object;
}

void write(std::ostream &out, const ordered_json &object)
{
    out << object.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
}

} // namespace

void write_json(std::ostream &out, const std::vector<ShownAttribute> &attributes)
{
    ordered_json list = ordered_json::array();
    for (const ShownAttribute &one : attributes) {
        ordered_json object{{"uidb", one.uidb},
                            {"app_type", one.stored.app_type},
                            {"app_ID", one.stored.app_ID},
                            {"vqi", one.stored.vqi},
                            {"slot", one.stored.slot},
                            {"iftype", one.stored.iftype},
                            {"dirty", one.stored.dirty}};
        object["interface"] = one.interface ? ordered_json{{"handle", one.interface->handle},
                                                           {"pic", one.interface->pic}}
                                            : ordered_json(nullptr);
        list.push_back(std::move(object));
    }
    write(out, {{"attributes", list}});
}

void write_json(std::ostream &out, const std::vector<ShownVservice> &services)
{
    ordered_json list = ordered_json::array();
    for (const ShownVservice &one : services)
        list.push_back(
            {{"index", one.index},
             {"encapsulation", encapsulation_name(one.config.encap)},
             {"user", one.config.user},
             {"source", endpoint_text(one.config.src_ip, one.config.sport)},
             {"destination", endpoint_text(destination_of(one.config), one.config.dport)},
             {"programmed", one.programmed.has_value()},
             {"takes_traffic", one.takes_traffic},
             {"hits", hits_json(one.hits())},
             {"nps",
              one.programmed ? nps_json(*one.programmed) : ordered_json(ordered_json::array())}});
    write(out, {{"vservices", list}});
}

void write_json(std::ostream &out, const ShownKey &key)
{
    ordered_json nodes = ordered_json::array();
    for (const ShownNode &node : key.nodes)
        nodes.push_back(node_json(node));
    write(out, {{"key", key.key},
                {"application_type", inline_shadow_db_key_to_apptype(key.key)},
                {"application_id", inline_shadow_db_key_to_appid(key.key)},
                {"version", key.main.entry_version},
                {"tag", key.main.entry_tag},
                {"app_ID", key.main.app_ID},
                {"entries", nodes}});
}

} // namespace inlinectl
