#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>

#include "card_rows.h"
#include "card_text.h"
#include "file_access.h"
#include "vlc/nearest_name.h"

namespace vlc {

namespace {

struct NumberKey {
    const char *table;
    const char *key;
    int64_t least;
    int64_t most;
    std::function<void(CardConfig &, int64_t)> set;
    // Nothing when another key says it, or none needs to.
    std::function<std::optional<int64_t>(const CardConfig &)> get;
};

template <typename Field>
NumberKey number_key(const char *table, const char *key, int64_t least, int64_t most,
                     Field CardConfig::*field)
{
    return {
        table,
        key,
        least,
        most,
        [field](CardConfig &config, int64_t value) { config.*field = static_cast<Field>(value); },
        [field](const CardConfig &config) { return int64_t{config.*field}; }};
}

constexpr int64_t most_mebibytes = 4096;

// A size that is no whole number of mebibytes, or a larger one, is said in bytes.
bool is_in_mebibytes(const CardConfig &config)
{
    return config.window_bytes % (uint64_t{1} << 20) == 0 &&
           config.window_bytes >> 20 <= most_mebibytes;
}

const NumberKey number_keys[] = {
    number_key("card", "type", 0, std::numeric_limits<uint32_t>::max(), &CardConfig::card_type),
    number_key("card", "slot", 0, std::numeric_limits<uint16_t>::max(), &CardConfig::slot),
    number_key("nps", "count", 1, 8, &CardConfig::num_nps),
    number_key("nps", "service_config_rows", 1, 2000000, &CardConfig::service_config_capacity),
    number_key("nps", "ext_conf_rows", 1, 2000000, &CardConfig::ext_conf_capacity),
    number_key("nps", "flow_rows", 1, 2000000, &CardConfig::flow_capacity),
    number_key("nps", "dynamic_counters", 0, 4194304, &CardConfig::dynamic_counters),
    {"nps", "inject_np", 0, 7,
     [](CardConfig &config, int64_t value) { config.inject_np = static_cast<uint16_t>(value); },
     [](const CardConfig &config) -> std::optional<int64_t> {
         // The ordinary one is not said, so that states of before there was a choice can be read.
         if (config.inject_np == 0)
             return std::nullopt;
         return config.inject_np;
     }},
    {"window", "mebibytes", 1, most_mebibytes,
     [](CardConfig &config, int64_t value) {
         config.window_bytes = static_cast<uint64_t>(value) << 20;
     },
     [](const CardConfig &config) -> std::optional<int64_t> {
         if (!is_in_mebibytes(config))
             return std::nullopt;
         return static_cast<int64_t>(config.window_bytes >> 20);
     }},
    {"window", "bytes", 1, std::numeric_limits<int64_t>::max(),
     [](CardConfig &config, int64_t value) { config.window_bytes = static_cast<uint64_t>(value); },
     [](const CardConfig &config) -> std::optional<int64_t> {
         if (is_in_mebibytes(config))
             return std::nullopt;
         return static_cast<int64_t>(config.window_bytes);
     }},
};
constexpr const char *known_tables[] = {"card", "nps", "window"};

bool has_both_window_sizes(const toml::table &document)
{
    return document.at_path("window.bytes") && document.at_path("window.mebibytes");
}

class CardDocument {
public:
    explicit CardDocument(const TomlReader &reader) : reader_(reader) {}

    CardConfig read(const toml::table &document) const
    {
        CardConfig config;
        for (const auto &[name, node] : document) {
            if (is_name_of_rows(name.str()))
                read_rows(reader_, name.str(), node, config);
            else
                read_table(name, node, config);
        }
        if (has_both_window_sizes(document))
            reader_.fail(document.at_path("window.bytes").node()->source(),
                         "'window.bytes' and 'window.mebibytes' say the same: give one of them");
        return config;
    }

private:
    void read_table(const toml::key &name, const toml::node &node, CardConfig &config) const
    {
        if (std::find(std::begin(known_tables), std::end(known_tables), name.str()) ==
            std::end(known_tables)) {
            fail_unknown(name.source(), std::string(name.str()));
        }
        if (!node.is_table()) {
            reader_.fail(node.source(), "'" + std::string(name.str()) + "' is a table: [" +
                                            std::string(name.str()) + "]");
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
            config.name = reader_.text(value, name);
            return;
        }
        for (const NumberKey &known : number_keys) {
            if (table == known.table && key.str() == known.key) {
                known.set(config, reader_.number(value, name, known.least, known.most));
                return;
            }
        }
        fail_unknown(key.source(), name);
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
        for (const std::string &known : names_in_rows()) {
            consider(known);
        }
        // Further away, it is hardly what was meant.
        const bool near = distance <= (name.size() + 1) / 2;
        reader_.fail(where, "'" + name + "' is not known" +
                                (near ? "; the nearest known name is '" + nearest + "'" : ""));
    }

    const TomlReader &reader_;
};

} // namespace

CardConfig card_of_document(const TomlReader &reader, const toml::table &document)
{
    return CardDocument(reader).read(document);
}

bool says_whole_card(const toml::table &document)
{
    const auto says = [&document](const char *table, const char *key) {
        return document[table][key].node() != nullptr;
    };
    const auto is_said = [&says](const NumberKey &key) {
        return std::string_view(key.table) == "window" || !key.get(CardConfig{}) ||
               says(key.table, key.key);
    };
    return std::ranges::all_of(number_keys, is_said) && says("card", "name") &&
           (says("window", "mebibytes") || says("window", "bytes"));
}

namespace {

// Of a file alone: a card that was told to have fewer NPs than its file says still has its rows.
void refuse_missing_nps(const TomlReader &reader, const toml::table &document,
                        const CardConfig &card)
{
    const auto check = [&](const toml::node *np) {
        if (np != nullptr && np->value<int64_t>().value_or(0) >= card.num_nps)
            reader.fail(np->source(), "the card has " + std::to_string(card.num_nps) +
                                          " NPs, and no NP " +
                                          std::to_string(*np->value<int64_t>()));
    };
    check(document["nps"]["inject_np"].node());
    if (const toml::array *rows = document["cpu_port"].as_array()) {
        for (const toml::node &row : *rows)
            check(row.as_table()->get("np"));
    }
}

} // namespace

CardConfig load_card_file(const std::filesystem::path &file)
{
    const TomlReader reader(file.string());
    const toml::table document = reader.parse(read_file(file));
    const CardConfig card = card_of_document(reader, document);
    refuse_missing_nps(reader, document, card);
    return card;
}

std::string text_of(const CardConfig &card)
{
    toml::table document{{"card", toml::table{{"name", card.name}}}};
    for (const NumberKey &known : number_keys) {
        if (const std::optional<int64_t> value = known.get(card)) {
            document.insert(known.table, toml::table{});
            document[known.table].as_table()->insert(known.key, *value);
        }
    }
    // The rows first: what is cut off lacks one of the keys that every card has.
    std::ostringstream text;
    const toml::table rows = table_of_rows(card);
    if (!rows.empty())
        text << rows << "\n\n";
    text << document << '\n';
    return text.str();
}

CardConfig card_of_text(const std::string &text, const std::string &source)
{
    const TomlReader reader(source);
    const toml::table document = reader.parse(text);
    if (!says_whole_card(document))
        throw StateError(source + ": does not say all of a card");
    return card_of_document(reader, document);
}

} // namespace vlc
