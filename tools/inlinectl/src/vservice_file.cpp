#include "vservice_file.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <limits>
#include <system_error>

#include <toml++/toml.h>

#include "exit_code.h"
#include "nearest_name.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

class VserviceFile {
public:
    explicit VserviceFile(const std::filesystem::path &file) : file_(file.string()) {}

    std::vector<vservice_config> read() const
    {
        const toml::table document = parse();
        for (const auto &[key, value] : document) {
            if (key != "vservice")
                refuse_at(key.source().begin, "unknown key '" + std::string(key.str()) + "'" +
                                                  did_you_mean(key.str(), {"vservice"}));
        }
        const toml::array *rows = document["vservice"].as_array();
        if (rows == nullptr)
            throw UsageError(file_ + ": no [[vservice]] in it");
        std::vector<vservice_config> services;
        for (const toml::node &row : *rows) {
            if (!row.is_table())
                refuse(row, "'vservice' is a list of tables, each written as [[vservice]]");
            services.push_back(record_of(*row.as_table()));
        }
        return services;
    }

private:
    struct Field {
        const char *name;
        bool needed;
        std::function<void(const VserviceFile &, const toml::node &, vservice_config &)> read;
    };

    template <typename Number>
    static Field number_field(const char *name, bool needed, Number vservice_config::*member)
    {
        return {name, needed,
                [=](const VserviceFile &file, const toml::node &value, vservice_config &record) {
                    record.*member = file.number<Number>(value, name);
                }};
    }
    static Field address_field(const char *name, bool needed, uint32_t vservice_config::*member)
    {
        return {name, needed,
                [=](const VserviceFile &file, const toml::node &value, vservice_config &record) {
                    const auto text = value.value_exact<std::string>();
                    const auto address = text ? address_number(*text) : std::nullopt;
                    if (!address)
                        file.refuse(value, std::string("'") + name +
                                               "' is an IPv4 address such as \"192.0.2.1\"");
                    record.*member = *address;
                }};
    }
    static Field encapsulation_field()
    {
        return {"encapsulation", false,
                [](const VserviceFile &file, const toml::node &value, vservice_config &record) {
                    const auto name = value.value_exact<std::string>();
                    if (!name) {
                        record.encap = file.number<uint32_t>(value, "encapsulation");
                        return;
                    }
                    const auto number = encapsulation_number(*name);
                    if (!number)
                        file.refuse(value, "unknown encapsulation '" + *name + "'" +
                                               did_you_mean(*name, known_encapsulations()));
                    record.encap = *number;
                }};
    }
    static const std::vector<Field> &fields()
    {
        static const std::vector<Field> all{
            number_field("index", true, &vservice_config::vs_index),
            encapsulation_field(),
            number_field("user", false, &vservice_config::user),
            address_field("source", true, &vservice_config::src_ip),
            address_field("destination", false, &vservice_config::dst_ip),
            number_field("source_port", true, &vservice_config::sport),
            number_field("destination_port", true, &vservice_config::dport),
        };
        return all;
    }

    vservice_config record_of(const toml::table &table) const
    {
        vservice_config record{};
        record.encap = VSERVICE_ENCAP_UDP;
        record.user = 1;
        for (const auto &[key, value] : table) {
            const auto field = std::ranges::find_if(
                fields(), [&key = key](const Field &known) { return key == known.name; });
            if (field == fields().end()) {
                std::vector<std::string> known;
                for (const Field &one : fields())
                    known.emplace_back(one.name);
                refuse_at(key.source().begin, "unknown key '" + std::string(key.str()) + "'" +
                                                  did_you_mean(key.str(), known));
            }
            field->read(*this, value, record);
        }
        for (const Field &field : fields()) {
            if (field.needed && !table.contains(field.name))
                refuse(table, std::string("a vservice without '") + field.name + "'");
        }
        if (!table.contains("destination") && record.encap != VSERVICE_ENCAP_UDP_LOCAL)
            refuse(table, "a vservice without 'destination', which only udp-local does without");
        return record;
    }

    template <typename Number>
    Number number(const toml::node &value, const char *name) const
    {
        constexpr int64_t highest = std::numeric_limits<Number>::max();
        const auto given = value.value_exact<int64_t>();
        if (!given || *given < 0 || *given > highest)
            refuse(value,
                   std::string("'") + name + "' is a number from 0 to " + std::to_string(highest));
        return static_cast<Number>(*given);
    }

    [[noreturn]] void refuse_at(const toml::source_position &place, const std::string &why) const
    {
        throw UsageError(file_ + ":" + std::to_string(place.line) + ":" +
                         std::to_string(place.column) + ": " + why);
    }
    [[noreturn]] void refuse(const toml::node &node, const std::string &why) const
    {
        refuse_at(node.source().begin, why);
    }

    toml::table parse() const
    {
        std::error_code ignored;
        if (std::filesystem::is_directory(file_, ignored))
            throw UsageError(file_ + ": is a directory");
        std::ifstream stream(file_, std::ios::binary);
        if (!stream)
            throw UsageError(file_ + ": " + std::generic_category().message(errno));
        try {
            return toml::parse(stream, file_);
        } catch (const toml::parse_error &error) {
            refuse_at(error.source().begin, std::string(error.description()));
        }
    }

    std::string file_;
};

} // namespace

std::vector<vservice_config> load_vservices(const std::filesystem::path &file)
{
    return VserviceFile(file).read();
}

} // namespace inlinectl
