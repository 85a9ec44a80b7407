#include "vservice_file.h"

#include <cerrno>
#include <fstream>
#include <functional>
#include <limits>
#include <system_error>

#include "exit_code.h"
#include "nearest_name.h"
#include "vlc/toml_reader.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

constexpr size_t most_bytes = size_t{64} << 20;

struct Field {
    const char *name;
    bool needed;
    std::function<void(const vlc::TomlReader &, const toml::node &, vservice_config &)> read;
};

template <typename Number>
Field number_field(const char *name, bool needed, Number vservice_config::*member)
{
    return {name, needed,
            [=](const vlc::TomlReader &reader, const toml::node &value, vservice_config &record) {
                record.*member = static_cast<Number>(
                    reader.number(value, name, 0, std::numeric_limits<Number>::max()));
            }};
}

Field address_field(const char *name, bool needed, uint32_t vservice_config::*member)
{
    return {name, needed,
            [=](const vlc::TomlReader &reader, const toml::node &value, vservice_config &record) {
                const auto address = address_number(reader.text(value, name));
                if (!address)
                    reader.fail(value.source(), std::string("'") + name +
                                                    "' is an IPv4 address such as \"192.0.2.1\"");
                record.*member = *address;
            }};
}

void read_encapsulation(const vlc::TomlReader &reader, const toml::node &value,
                        vservice_config &record)
{
    constexpr const char *name = "encapsulation";
    if (!value.is_string() && !value.is_integer())
        reader.fail(value.source(), "'encapsulation' is \"udp\", \"udp-local\" or a whole number");
    if (!value.is_string()) {
        record.encap = static_cast<uint32_t>(
            reader.number(value, name, 0, std::numeric_limits<uint32_t>::max()));
        return;
    }
    const std::string &text = reader.text(value, name);
    const auto number = encapsulation_number(text);
    if (!number)
        reader.fail(value.source(), "unknown encapsulation '" + text + "'" +
                                        did_you_mean(text, known_encapsulations()));
    record.encap = *number;
}

const std::vector<Field> &fields()
{
    static const std::vector<Field> all{
        number_field("index", true, &vservice_config::vs_index),
        {"encapsulation", false, read_encapsulation},
        number_field("user", false, &vservice_config::user),
        address_field("source", true, &vservice_config::src_ip),
        address_field("destination", false, &vservice_config::dst_ip),
        number_field("source_port", true, &vservice_config::sport),
        number_field("destination_port", true, &vservice_config::dport),
    };
    return all;
}

[[noreturn]] void refuse_key(const vlc::TomlReader &reader, const toml::key &key,
                             const std::vector<std::string> &known)
{
    reader.fail(key.source(),
                "unknown key '" + std::string(key.str()) + "'" + did_you_mean(key.str(), known));
}

const Field &field_named(const vlc::TomlReader &reader, const toml::key &key)
{
    std::vector<std::string> known;
    for (const Field &field : fields()) {
        if (key == field.name)
            return field;
        known.emplace_back(field.name);
    }
    refuse_key(reader, key, known);
}

vservice_config record_of(const vlc::TomlReader &reader, const toml::table &table)
{
    vservice_config record{};
    record.encap = VSERVICE_ENCAP_UDP;
    record.user = 1;
    for (const auto &[key, value] : table)
        field_named(reader, key).read(reader, value, record);
    for (const Field &field : fields()) {
        if (field.needed && !table.contains(field.name))
            reader.fail(table.source(), std::string("a vservice without '") + field.name + "'");
    }
    if (!table.contains("destination") && record.encap != VSERVICE_ENCAP_UDP_LOCAL)
        reader.fail(table.source(),
                    "a vservice without 'destination', which only udp-local does without");
    return record;
}

std::string text_of(const std::filesystem::path &file)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored))
        throw UsageError(file.string() + ": is a directory");
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw UsageError(file.string() + ": " + std::generic_category().message(errno));
    // Some files have no end.
    std::string text(most_bytes + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(stream.gcount()));
    if (text.size() > most_bytes)
        throw UsageError(file.string() + ": is longer than 64 MiB");
    return text;
}

} // namespace

std::vector<vservice_config> load_vservices(const std::filesystem::path &file)
{
    const vlc::TomlReader reader(file.string());
    const toml::table document = reader.parse(text_of(file));
    for (const auto &[key, value] : document) {
        if (key != "vservice")
            refuse_key(reader, key, {"vservice"});
    }
    const toml::node *rows = document.get("vservice");
    if (rows == nullptr)
        throw UsageError(file.string() + ": no [[vservice]] in it");
    if (!rows->is_array() || !rows->as_array()->is_homogeneous(toml::node_type::table))
        reader.fail(rows->source(), "'vservice' is a list of tables, each written as [[vservice]]");
    std::vector<vservice_config> services;
    for (const toml::node &row : *rows->as_array())
        services.push_back(record_of(reader, *row.as_table()));
    return services;
}

} // namespace inlinectl
