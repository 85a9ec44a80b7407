// What a window holds, for a person.
#include "shown_state.h"

#include <algorithm>

#include "encapsulation_layout.h"
#include "entry_names.h"
#include "hardware_failures.h"
#include "numbers.h"
#include "protocol_names.h"
#include "text_table.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

using Align = TextTable::Align;

std::string hexadecimal(uint32_t value)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%x", value);
    return text.data();
}

std::string np_text(const NpRow &np)
{
    return !np.is_there ? "no row" : np.is_as_stored ? "as stored" : "differs";
}

// "encapsulates in udp from 192.0.2.1:1 to 203.0.113.9:2"; empty for another result.
std::string result_meaning(const app_node &stored)
{
    const auto found = encapsulation_layout::encapsulation_in({stored.result, stored.result_len});
    if (!found)
        return "";
    return "encapsulates in " + protocol_name(found->protocol) + " from " +
           endpoint_text(found->source, found->source_port) + " to " +
           endpoint_text(found->destination, found->destination_port);
}

void write_node(std::ostream &out, const ShownNode &node)
{
    const app_node &stored = node.stored.content.app_node;
    TextTable table({Align::left, Align::left});
    table.add({"entry", std::to_string(stored.entry_id)});
    table.add({"  table", table_name(stored.table_type)});
    if (node.stored.has_row) {
        const std::string name = key_name(stored.table_type, {stored.key, stored.key_len});
        const std::string meaning = result_meaning(stored);
        table.add({"  key", spaced_hex({stored.key, stored.key_len}) +
                                (name.empty() ? "" : " (" + name + ")")});
        table.add({"  result", spaced_hex({stored.result, stored.result_len})});
        if (!meaning.empty())
            table.add({"", meaning});
    } else {
        table.add({"  key", "is longer than a row's can be"});
    }
    table.add({"  hw index", hexadecimal(stored.hw_index)});
    for (size_t np = 0; np < node.nps.size(); ++np)
        table.add({"  NP " + std::to_string(np),
                   np_text(node.nps[np]) + ", hit by " +
                       counted(node.nps[np].hits.packets, "packet", "packets") + ", " +
                       counted(node.nps[np].hits.bytes, "byte", "bytes")});
    table.write(out);
}

} // namespace

void write_text(std::ostream &out, const std::vector<ShownAttribute> &attributes)
{
    if (attributes.empty()) {
        out << "No interface has attributes.\n";
        return;
    }
    TextTable table({Align::right, Align::right, Align::right, Align::right, Align::right,
                     Align::right, Align::right, Align::right, Align::right});
    table.add({"uidb", "app type", "app ID", "vqi", "slot", "iftype", "dirty", "handle", "PIC"});
    for (const ShownAttribute &one : attributes)
        table.add({std::to_string(one.uidb), std::to_string(one.stored.app_type),
                   std::to_string(one.stored.app_ID), std::to_string(one.stored.vqi),
                   std::to_string(one.stored.slot), std::to_string(one.stored.iftype),
                   std::to_string(one.stored.dirty),
                   one.interface ? hexadecimal(one.interface->handle) : "-",
                   one.interface ? hexadecimal(one.interface->pic) : "-"});
    table.write(out);
}

void write_text(std::ostream &out, const std::vector<ShownVservice> &services)
{
    if (services.empty()) {
        out << "No virtual service is configured.\n";
        return;
    }
    TextTable table({Align::right, Align::left, Align::right, Align::left, Align::left, Align::left,
                     Align::right, Align::right});
    table.add({"index", "encap", "user", "source", "destination", "state", "packets", "bytes"});
    vlc::PacketCount sum{};
    std::string without;
    size_t programmed = 0;
    size_t hit = 0;
    for (const ShownVservice &one : services) {
        const vlc::PacketCount hits = one.hits();
        table.add({std::to_string(one.index), encapsulation_name(one.config.encap),
                   std::to_string(one.config.user),
                   endpoint_text(one.config.src_ip, one.config.sport),
                   endpoint_text(destination_of(one.config), one.config.dport),
                   one.programmed ? "programmed" : "configured", grouped(hits.packets),
                   grouped(hits.bytes)});
        sum.packets += hits.packets;
        sum.bytes += hits.bytes;
        programmed += one.programmed ? 1U : 0U;
        hit += hits.packets > 0 ? 1U : 0U;
        if (one.programmed && hits.packets == 0)
            without += " " + std::to_string(one.index);
    }
    table.add({"", "", "", "", "", "", grouped(sum.packets), grouped(sum.bytes)});
    table.write(out);
    out << "\n"
        << counted(programmed, "service is", "services are") << " programmed; " << grouped(hit)
        << " got packets\n";
    if (!without.empty())
        out << "Programmed and without packets:" << without << "\n";
}

void write_text(std::ostream &out, const ShownKey &key)
{
    out << "Key      " << key.key << " (" << service_name(static_cast<uint16_t>(key.key))
        << "), application type " << inline_shadow_db_key_to_apptype(key.key) << ", id "
        << inline_shadow_db_key_to_appid(key.key) << "\n"
        << "Version  " << hexadecimal(key.main.entry_version) << ", tag " << key.main.entry_tag
        << ", application ID " << key.main.app_ID << "\n"
        << "Entries  " << key.nodes.size() << "\n";
    for (const ShownNode &node : key.nodes) {
        out << "\n";
        write_node(out, node);
    }
}

} // namespace inlinectl
