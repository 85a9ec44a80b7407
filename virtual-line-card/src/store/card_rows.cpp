#include "card_rows.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <tuple>

#include "vlc/nearest_name.h"

namespace vlc {

namespace {

constexpr int64_t any_word = std::numeric_limits<uint32_t>::max();
constexpr int64_t highest_vservice =
    InterfaceConfig::highest_key - InterfaceConfig::first_vservice_key;

constexpr size_t most_rows = InterfaceConfig::highest_uidb + 1; // of each kind

enum class Need { given, given_once, optional }; // once: no two rows have the same

// One field of a row. The full name is for what is said of a bad value.
template <typename Row>
struct RowField {
    const char *name;
    Need need;
    std::function<void(const TomlReader &, const std::string &full_name, const toml::node &, Row &)>
        read;
    std::function<void(const Row &, toml::table &)> write;
};

template <typename Row, typename Number>
RowField<Row> number_field(const char *name, Need need, Number Row::*member, int64_t least,
                           int64_t most)
{
    return {name, need,
            [=](const TomlReader &reader, const std::string &full_name, const toml::node &value,
                Row &row) {
                row.*member = static_cast<Number>(reader.number(value, full_name, least, most));
            },
            [=](const Row &row, toml::table &table) { table.insert(name, int64_t{row.*member}); }};
}

// ---- fields ------------------------------------------------------------------------------------

const std::vector<RowField<SlotConfig>> &fields_of(const SlotConfig *)
{
    static const std::vector<RowField<SlotConfig>> all{
        number_field("number", Need::given_once, &SlotConfig::number, 0,
                     std::numeric_limits<uint16_t>::max()),
        number_field("node", Need::given_once, &SlotConfig::node, 0, any_word),
        number_field("type", Need::given, &SlotConfig::card_type, 0, any_word),
    };
    return all;
}

const std::vector<RowField<VrfConfig>> &fields_of(const VrfConfig *)
{
    static const std::vector<RowField<VrfConfig>> all{
        number_field("id", Need::given_once, &VrfConfig::id, 0, any_word),
        number_field("table", Need::given, &VrfConfig::table, 0, VrfConfig::highest_table),
    };
    return all;
}

RowField<InterfaceConfig> vlan_field()
{
    return {"vlan", Need::optional,
            [](const TomlReader &reader, const std::string &name, const toml::node &value,
               InterfaceConfig &row) {
                row.vlan = static_cast<uint16_t>(reader.number(value, name, 0, 4095));
            },
            [](const InterfaceConfig &row, toml::table &table) {
                if (row.vlan)
                    table.insert("vlan", int64_t{*row.vlan});
            }};
}

RowField<InterfaceConfig> capture_field()
{
    return {"capture", Need::optional,
            [](const TomlReader &reader, const std::string &name, const toml::node &value,
               InterfaceConfig &row) {
                row.capture = reader.text(value, name);
                if (row.capture.find('/') != std::string::npos)
                    reader.fail(value.source(),
                                "'" + name + "' is a file's name without its directory");
            },
            [](const InterfaceConfig &row, toml::table &table) {
                if (!row.capture.empty())
                    table.insert("capture", row.capture);
            }};
}

RowField<InterfaceConfig> source_field()
{
    return {"source", Need::optional,
            [](const TomlReader &reader, const std::string &name, const toml::node &value,
               InterfaceConfig &row) {
                row.source = prefix_of(reader.text(value, name));
                if (!row.source)
                    reader.fail(value.source(),
                                "'" + name +
                                    "' is an IPv4 prefix such as '192.0.2.0/24', with no bit set "
                                    "behind its length");
            },
            [](const InterfaceConfig &row, toml::table &table) {
                if (row.source)
                    table.insert("source", text_of(*row.source));
            }};
}

// Two ways to name a key of the shadow DB.
RowField<InterfaceConfig> key_field(const char *field, uint16_t first, int64_t highest)
{
    return {field, Need::optional,
            [=](const TomlReader &reader, const std::string &name, const toml::node &value,
                InterfaceConfig &row) {
                if (row.key)
                    reader.fail(value.source(), "'interface.key' and 'interface.vservice' are two "
                                                "names of one thing: give one of them");
                row.key = static_cast<uint16_t>(first + reader.number(value, name, 0, highest));
            },
            [=](const InterfaceConfig &row, toml::table &table) {
                const bool is_of_vservice =
                    row.key && *row.key >= InterfaceConfig::first_vservice_key;
                if (row.key && is_of_vservice == (first != 0))
                    table.insert(field, int64_t{*row.key - first});
            }};
}

const std::vector<RowField<InterfaceConfig>> &fields_of(const InterfaceConfig *)
{
    static const std::vector<RowField<InterfaceConfig>> all{
        number_field("handle", Need::given_once, &InterfaceConfig::handle, 0, any_word),
        number_field("uidb", Need::given_once, &InterfaceConfig::uidb, 0,
                     InterfaceConfig::highest_uidb),
        number_field("pic", Need::given, &InterfaceConfig::pic, 0, any_word),
        vlan_field(),
        capture_field(),
        source_field(),
        key_field("key", 0, InterfaceConfig::highest_key),
        key_field("vservice", InterfaceConfig::first_vservice_key, highest_vservice),
    };
    return all;
}

RowField<CpuPortConfig> port_field()
{
    return {"port", Need::optional,
            [](const TomlReader &reader, const std::string &name, const toml::node &value,
               CpuPortConfig &row) {
                row.is_there = value.value<std::string>() != "none";
                if (!row.is_there)
                    return;
                if (!value.is_integer())
                    reader.fail(value.source(),
                                "'" + name + "' is a whole number, or 'none' for an NP that has " +
                                    "no port");
                row.port =
                    static_cast<uint32_t>(reader.number(value, name, 0, CpuPortConfig::highest));
            },
            [](const CpuPortConfig &row, toml::table &table) {
                if (!row.is_there)
                    table.insert("port", "none");
                else if (row.port)
                    table.insert("port", int64_t{*row.port});
            }};
}

// As the machine's kernel names devices.
bool is_device_name(const std::string &name)
{
    constexpr size_t longest = 15;
    return !name.empty() && name.size() <= longest && name != "." && name != ".." &&
           name.find_first_of("/: \t\n") == std::string::npos;
}

RowField<CpuPortConfig> device_field()
{
    return {"device", Need::optional,
            [](const TomlReader &reader, const std::string &name, const toml::node &value,
               CpuPortConfig &row) {
                row.device = reader.text(value, name);
                if (!is_device_name(row.device))
                    reader.fail(value.source(), "'" + name + "' is the name of a network device");
            },
            [](const CpuPortConfig &row, toml::table &table) {
                if (!row.device.empty())
                    table.insert("device", row.device);
            }};
}

const std::vector<RowField<CpuPortConfig>> &fields_of(const CpuPortConfig *)
{
    static const std::vector<RowField<CpuPortConfig>> all{
        number_field("np", Need::given_once, &CpuPortConfig::np, 0, 7),
        port_field(),
        device_field(),
    };
    return all;
}

// ---- rows --------------------------------------------------------------------------------------

// What no two rows may have, and in which line it was first.
using Earlier = std::map<std::string, toml::source_index>;

void refuse_again(const TomlReader &reader, Earlier &earlier, const std::string &what,
                  const toml::source_region &where)
{
    const auto [first, is_new] = earlier.try_emplace(what, where.begin.line);
    if (!is_new)
        reader.fail(where,
                    what + " is given in line " + std::to_string(first->second) + " already");
}

template <typename Row>
void check_row(const TomlReader &, Earlier &, const toml::table &, const Row &)
{
}

void check_row(const TomlReader &reader, Earlier &earlier, const toml::table &table,
               const InterfaceConfig &row)
{
    if (row.key && !row.takes_traffic())
        reader.fail(table.source(), "an interface whose packets meet an entry needs traffic: give "
                                    "'vlan', 'capture' or 'source'");
    if (!row.takes_traffic())
        return;
    std::string traffic = "an interface for";
    if (row.vlan)
        traffic += " VLAN " + std::to_string(*row.vlan);
    if (!row.capture.empty())
        traffic += " capture '" + row.capture + "'";
    if (row.source)
        traffic += " source " + text_of(*row.source);
    refuse_again(reader, earlier, traffic, table.source());
}

void check_row(const TomlReader &reader, Earlier &earlier, const toml::table &table,
               const CpuPortConfig &row)
{
    if (row.device.empty())
        return;
    if (!row.is_there)
        reader.fail(table.get("device")->source(), "an NP without a port has no device");
    const uint32_t port = row.port.value_or(CpuPortConfig::first + row.np);
    refuse_again(reader, earlier, "a device of CPU port " + std::to_string(port),
                 table.get("device")->source());
}

template <typename Row>
Row read_row(const TomlReader &reader, const std::string &name, const toml::table &table,
             Earlier &earlier)
{
    const auto &fields = fields_of(static_cast<const Row *>(nullptr));
    Row row;
    for (const auto &[key, value] : table) {
        const std::string full_name = name + "." + std::string(key.str());
        const auto field = std::ranges::find_if(
            fields, [&key = key](const RowField<Row> &known) { return key == known.name; });
        if (field == fields.end()) {
            std::vector<std::string> known;
            for (const RowField<Row> &one : fields)
                known.push_back(name + "." + one.name);
            reader.fail(key.source(),
                        "'" + full_name + "' is not known" + nearest_known_name(full_name, known));
        }
        field->read(reader, full_name, value, row);
        if (field->need == Need::given_once)
            refuse_again(reader, earlier,
                         "'" + full_name + "' " + std::to_string(*value.template value<int64_t>()),
                         value.source());
    }
    for (const RowField<Row> &field : fields) {
        if (field.need != Need::optional && !table.contains(field.name))
            reader.fail(table.source(), "[[" + name + "]] without '" + field.name + "'");
    }
    check_row(reader, earlier, table, row);
    return row;
}

// ---- the kinds of rows -------------------------------------------------------------------------

struct RowKind {
    const char *name;
    std::function<void(const TomlReader &, const toml::table &, Earlier &, CardConfig &)> read;
    std::function<toml::array(const CardConfig &)> write;
    std::vector<std::string> fields;
};

template <typename Row>
RowKind row_kind(const char *name, std::vector<Row> CardConfig::*rows)
{
    RowKind kind;
    kind.name = name;
    kind.read = [=](const TomlReader &reader, const toml::table &table, Earlier &earlier,
                    CardConfig &config) {
        (config.*rows).push_back(read_row<Row>(reader, name, table, earlier));
    };
    const auto *fields = &fields_of(static_cast<const Row *>(nullptr));
    kind.write = [=](const CardConfig &config) {
        toml::array all;
        for (const Row &row : config.*rows) {
            toml::table table;
            for (const RowField<Row> &field : *fields)
                field.write(row, table);
            all.push_back(std::move(table));
        }
        return all;
    };
    for (const RowField<Row> &field : *fields)
        kind.fields.emplace_back(field.name);
    return kind;
}

const std::vector<RowKind> &kinds()
{
    static const std::vector<RowKind> all{
        row_kind("slot", &CardConfig::slots),
        row_kind("interface", &CardConfig::interfaces),
        row_kind("vrf", &CardConfig::vrfs),
        row_kind("cpu_port", &CardConfig::cpu_ports),
    };
    return all;
}

const RowKind *kind_of(std::string_view name)
{
    const auto kind =
        std::ranges::find_if(kinds(), [name](const RowKind &known) { return known.name == name; });
    return kind == kinds().end() ? nullptr : &*kind;
}

} // namespace

std::optional<uint32_t> cpu_port_of(const CardConfig &card, uint32_t np)
{
    if (np >= card.num_nps)
        return std::nullopt;
    const auto row = std::ranges::find(card.cpu_ports, np, &CpuPortConfig::np);
    if (row == card.cpu_ports.end())
        return CpuPortConfig::first + np;
    if (!row->is_there)
        return std::nullopt;
    return row->port.value_or(CpuPortConfig::first + np);
}

bool is_name_of_rows(std::string_view name)
{
    return kind_of(name) != nullptr;
}

void read_rows(const TomlReader &reader, std::string_view name, const toml::node &rows,
               CardConfig &config)
{
    const RowKind &kind = *kind_of(name);
    const std::string written = "'" + std::string(name) + "' is a list of tables, each written [[" +
                                std::string(name) + "]]";
    const toml::array *all = rows.as_array();
    if (all == nullptr)
        reader.fail(rows.source(), written);
    if (all->size() > most_rows)
        reader.fail(rows.source(), "'" + std::string(name) + "' has " +
                                       std::to_string(all->size()) + " rows, and may have " +
                                       std::to_string(most_rows));
    Earlier earlier;
    for (const toml::node &row : *all) {
        if (!row.is_table())
            reader.fail(row.source(), written);
        kind.read(reader, *row.as_table(), earlier, config);
    }
}

std::vector<std::string> names_in_rows()
{
    std::vector<std::string> names;
    for (const RowKind &kind : kinds()) {
        names.emplace_back(kind.name);
        for (const std::string &field : kind.fields)
            names.push_back(std::string(kind.name) + "." + field);
    }
    return names;
}

toml::table table_of_rows(const CardConfig &config)
{
    toml::table document;
    for (const RowKind &kind : kinds()) {
        toml::array rows = kind.write(config);
        if (!rows.empty())
            document.insert(kind.name, std::move(rows));
    }
    return document;
}

} // namespace vlc
