#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <string>

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

#include "file_access.h"
#include "vlc/card_config.h"
#include "vlc/nearest_name.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

struct NumberKey {
    const char *table;
    const char *key;
    int64_t least;
    int64_t most;
    std::function<void(CardConfig &, uint64_t)> set;
};

template <typename Field>
auto into(Field CardConfig::*field)
{
    return
        [field](CardConfig &config, uint64_t value) { config.*field = static_cast<Field>(value); };
}

const NumberKey number_keys[] = {
    {"card", "type", 0, std::numeric_limits<uint32_t>::max(), into(&CardConfig::card_type)},
    {"card", "slot", 0, std::numeric_limits<uint16_t>::max(), into(&CardConfig::slot)},
    {"nps", "count", 1, 8, into(&CardConfig::num_nps)},
    {"nps", "service_config_rows", 1, 1048576, into(&CardConfig::service_config_capacity)},
    {"nps", "ext_conf_rows", 1, 1048576, into(&CardConfig::ext_conf_capacity)},
    {"window", "mebibytes", 1, 4096,
     [](CardConfig &config, uint64_t value) { config.window_bytes = value << 20; }},
};
constexpr const char *known_tables[] = {"card", "nps", "window"};

class CardFile {
public:
    explicit CardFile(const std::filesystem::path &path) : path_(path) {}

    CardConfig load()
    {
        const std::string text = read_file(path_);
        toml::table document;
        try {
            document = toml::parse(text, path_.string());
        } catch (const toml::parse_error &error) {
            fail(error.source(), std::string(error.description()));
        }
        CardConfig config;
        for (const auto &[name, node] : document) {
            read_table(name, node, config);
        }
        return config;
    }

private:
    [[noreturn]] void fail(const toml::source_region &where, const std::string &why) const
    {
        throw StateError(path_.string() + ":" + std::to_string(where.begin.line) + ":" +
                         std::to_string(where.begin.column) + ": " + why);
    }

    void read_table(const toml::key &name, const toml::node &node, CardConfig &config) const
    {
        if (std::find(std::begin(known_tables), std::end(known_tables), name.str()) ==
            std::end(known_tables)) {
            fail_unknown(name.source(), std::string(name.str()));
        }
        if (!node.is_table()) {
            fail(node.source(),
                 "'" + std::string(name.str()) + "' is a table: [" + std::string(name.str()) + "]");
        }
        for (const auto &[key, value] : *node.as_table()) {
            read_value(name.str(), key, value, config);
        }
    }

    void read_value(std::string_view table, const toml::key &key, const toml::node &value,
                    CardConfig &config) const
    {
        const std::string name = std::string(table) + "." + std::string(key.str());
        if (name == "card.name") {
            const auto *text = value.as_string();
            if (text == nullptr || text->get().empty()) {
                fail(value.source(), "'card.name' is a text that is not empty");
            }
            config.name = text->get();
            return;
        }
        for (const NumberKey &known : number_keys) {
            if (table == known.table && key.str() == known.key) {
                known.set(config, number(name, known, value));
                return;
            }
        }
        fail_unknown(key.source(), name);
    }

    uint64_t number(const std::string &name, const NumberKey &known, const toml::node &value) const
    {
        const std::string range = std::to_string(known.least) + " to " + std::to_string(known.most);
        const auto *integer = value.as_integer();
        if (integer == nullptr) {
            fail(value.source(), "'" + name + "' is a whole number, " + range);
        }
        if (integer->get() < known.least || integer->get() > known.most) {
            fail(value.source(),
                 "'" + name + "' is " + std::to_string(integer->get()) + ", and must be " + range);
        }
        return static_cast<uint64_t>(integer->get());
    }

    [[noreturn]] void fail_unknown(const toml::source_region &where, const std::string &name) const
    {
        std::string nearest;
        size_t distance = std::numeric_limits<size_t>::max();
        const auto consider = [&](const std::string &known) {
            // The last part counts alone too: a key may stand under the wrong table.
            const auto last = [](const std::string &full) {
                return full.substr(full.rfind('.') + 1);
            };
            const size_t away =
                std::min(edit_distance(name, known), edit_distance(last(name), last(known)) + 1);
            if (away < distance) {
                distance = away;
                nearest = known;
            }
        };
        for (const char *table : known_tables) {
            consider(table);
        }
        consider("card.name");
        for (const NumberKey &known : number_keys) {
            consider(std::string(known.table) + "." + known.key);
        }
        // Further away, it is hardly what was meant.
        const bool near = distance <= (name.size() + 1) / 2;
        fail(where, "'" + name + "' is not known" +
                        (near ? "; the nearest known name is '" + nearest + "'" : ""));
    }

    std::filesystem::path path_;
};

} // namespace

CardConfig load_card_file(const std::filesystem::path &file)
{
    return CardFile(file).load();
}

} // namespace vlc
