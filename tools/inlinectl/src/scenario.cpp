#include "scenario.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <limits>
#include <system_error>

#include <arpa/inet.h>
#include <toml++/toml.h>

#include "exit_code.h"
#include "nearest_name.h"
#include "protocol_names.h"

namespace inlinectl {
namespace {

using services::Destination;

class ScenarioReader {
public:
    explicit ScenarioReader(const std::filesystem::path &file) : file_(file.string()) {}

    std::vector<Destination> read()
    {
        const toml::table document = parse();
        only_known_keys(document, {"entry"});
        const toml::node *entries = document.get("entry");
        if (entries == nullptr)
            throw UsageError(file_ + ": no [[entry]] in it");
        const toml::array *rows = entries->as_array();
        if (rows == nullptr)
            refuse(*entries, "'entry' is a list of tables, each written as [[entry]]");
        std::vector<Destination> destinations;
        for (const toml::node &row : *rows) {
            const toml::table *fields = row.as_table();
            if (fields == nullptr)
                refuse(row, "'entry' is a list of tables, each written as [[entry]]");
            destinations.push_back(destination_of(*fields));
        }
        std::ranges::sort(destinations);
        destinations.erase(std::unique(destinations.begin(), destinations.end()),
                           destinations.end());
        return destinations;
    }

private:
    [[noreturn]] void refuse_at(const toml::source_position &place, const std::string &reason) const
    {
        throw UsageError(file_ + ":" + std::to_string(place.line) + ":" +
                         std::to_string(place.column) + ": " + reason);
    }

    [[noreturn]] void refuse(const toml::node &node, const std::string &reason) const
    {
        refuse_at(node.source().begin, reason);
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

    void only_known_keys(const toml::table &table, const std::vector<std::string> &known) const
    {
        for (const auto &[key, value] : table) {
            if (std::ranges::find(known, key.str()) == known.end())
                refuse_at(key.source().begin, "unknown key '" + std::string(key.str()) + "'" +
                                                  did_you_mean(key.str(), known));
        }
    }

    const toml::node &required(const toml::table &table, const char *key) const
    {
        const toml::node *value = table.get(key);
        if (value == nullptr)
            refuse(table, std::string("an entry without '") + key + "'");
        return *value;
    }

    template <typename Number>
    Number number_in(const toml::node &value, const char *key) const
    {
        constexpr int64_t highest = std::numeric_limits<Number>::max();
        const toml::value<int64_t> *number = value.as_integer();
        if (number == nullptr || number->get() < 0 || number->get() > highest)
            refuse(value,
                   std::string("'") + key + "' is a number from 0 to " + std::to_string(highest));
        return static_cast<Number>(number->get());
    }

    uint8_t protocol_in(const toml::node &value) const
    {
        const toml::value<std::string> *name = value.as_string();
        if (name == nullptr)
            return number_in<uint8_t>(value, "protocol");
        const std::optional<uint8_t> number = protocol_number(name->get());
        if (!number)
            refuse(value, "unknown protocol '" + name->get() + "'" +
                              did_you_mean(name->get(), known_protocols()));
        return *number;
    }

    uint32_t address_in(const toml::node &value) const
    {
        const toml::value<std::string> *text = value.as_string();
        in_addr address{};
        if (text == nullptr || inet_pton(AF_INET, text->get().c_str(), &address) != 1)
            refuse(value, "'address' is an IPv4 address such as \"192.0.2.1\"");
        return ntohl(address.s_addr);
    }

    Destination destination_of(const toml::table &fields) const
    {
        only_known_keys(fields, {"protocol", "address", "port"});
        Destination destination;
        destination.protocol = protocol_in(required(fields, "protocol"));
        destination.address = address_in(required(fields, "address"));
        if (const toml::node *port = fields.get("port"); port != nullptr)
            destination.port = number_in<uint16_t>(*port, "port");
        return destination;
    }

    std::string file_;
};

} // namespace

std::vector<Destination> load_scenario(const std::filesystem::path &file)
{
    return ScenarioReader(file).read();
}

} // namespace inlinectl
