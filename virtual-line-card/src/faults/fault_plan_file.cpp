// A fault plan's file.
#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <vector>

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

#include "fault_fields.h"
#include "file_access.h"
#include "vlc/nearest_name.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

class FaultPlanFile {
public:
    explicit FaultPlanFile(const std::filesystem::path &path) : path_(path) {}
    FaultPlan load() const;

private:
    // How a field is read into a rule; the name is for what is said of a bad value.
    struct Field {
        const char *name;
        std::function<void(const FaultPlanFile &, const toml::node &, FaultRule &)> read;
    };
    static const std::vector<Field> &fields();
    template <typename Number>
    static Field number_field(const char *name, std::optional<Number> FaultRule::*member,
                              Number least, Number most);
    template <typename Words, typename Member>
    static Field word_field(const char *name, const Words &words, Member FaultRule::*member);

    [[noreturn]] void fail(const toml::source_region &where, const std::string &why) const
    {
        throw StateError(path_.string() + ":" + std::to_string(where.begin.line) + ":" +
                         std::to_string(where.begin.column) + ": " + why);
    }
    toml::table parse() const;
    FaultRule read_rule(const toml::table &table) const;
    template <typename Number>
    Number number(const toml::node &value, const char *name, Number least, Number most) const;
    std::string text(const toml::node &value, const char *name) const;
    std::vector<uint8_t> key_bytes(const toml::node &value) const;

    std::filesystem::path path_;
};

// ---- values ------------------------------------------------------------------------------------

template <typename Number>
Number FaultPlanFile::number(const toml::node &value, const char *name, Number least,
                             Number most) const
{
    // TOML's whole numbers are signed.
    constexpr auto highest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    const uint64_t top = std::min<uint64_t>(most, highest);
    const toml::value<int64_t> *given = value.as_integer();
    if (given == nullptr || given->get() < 0 || static_cast<uint64_t>(given->get()) < least ||
        static_cast<uint64_t>(given->get()) > top) {
        fail(value.source(), "'" + std::string(name) + "' is a whole number, " +
                                 std::to_string(least) +
                                 (top == highest ? " or more" : " to " + std::to_string(top)));
    }
    return static_cast<Number>(given->get());
}

std::string FaultPlanFile::text(const toml::node &value, const char *name) const
{
    const toml::value<std::string> *given = value.as_string();
    if (given == nullptr)
        fail(value.source(), "'" + std::string(name) + "' is a text");
    return given->get();
}

int hex_digit(char letter)
{
    constexpr std::string_view lower = "0123456789abcdef";
    constexpr std::string_view upper = "0123456789ABCDEF";
    const size_t place = std::min(lower.find(letter), upper.find(letter));
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

// Two digits a byte; blanks may stand between bytes.
std::vector<uint8_t> FaultPlanFile::key_bytes(const toml::node &value) const
{
    const std::string given = text(value, "key");
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < given.size();) {
        if (given[i] == ' ') {
            i++;
            continue;
        }
        const int high = hex_digit(given[i]);
        const int low = i + 1 < given.size() ? hex_digit(given[i + 1]) : -1;
        if (high < 0 || low < 0)
            fail(value.source(), "'key' is bytes in hexadecimal, two digits each");
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
        i += 2;
    }
    if (bytes.empty() || bytes.size() > PRM_KEY_BYTES)
        fail(value.source(), "'key' is 1 to " + std::to_string(PRM_KEY_BYTES) + " bytes");
    return bytes;
}

// ---- fields ------------------------------------------------------------------------------------

template <typename Number>
FaultPlanFile::Field FaultPlanFile::number_field(const char *name,
                                                 std::optional<Number> FaultRule::*member,
                                                 Number least, Number most)
{
    return {name, [=](const FaultPlanFile &file, const toml::node &value, FaultRule &rule) {
                rule.*member = file.number(value, name, least, most);
            }};
}

template <typename Words, typename Member>
FaultPlanFile::Field FaultPlanFile::word_field(const char *name, const Words &words,
                                               Member FaultRule::*member)
{
    return {name, [name, &words, member](const FaultPlanFile &file, const toml::node &value,
                                         FaultRule &rule) {
                const std::string given = file.text(value, name);
                std::vector<std::string_view> known;
                for (const auto &word : words) {
                    if (given == word.word) {
                        rule.*member = word.value;
                        return;
                    }
                    known.emplace_back(word.word);
                }
                file.fail(value.source(), std::string(name) + " '" + given + "' is not known" +
                                              nearest_known_name(given, known));
            }};
}

const std::vector<FaultPlanFile::Field> &FaultPlanFile::fields()
{
    constexpr uint32_t any_word = std::numeric_limits<uint32_t>::max();
    constexpr uint64_t any_count = std::numeric_limits<uint64_t>::max();
    static const std::vector<Field> all{
        {"service", [](const FaultPlanFile &file, const toml::node &value,
                       FaultRule &rule) { rule.service = file.text(value, "service"); }},
        number_field<uint32_t>("np", &FaultRule::np, 0, 7),
        word_field("table", fault_tables, &FaultRule::table),
        word_field("operation", fault_operations, &FaultRule::operation),
        {"key", [](const FaultPlanFile &file, const toml::node &value,
                   FaultRule &rule) { rule.key = file.key_bytes(value); }},
        word_field("action", fault_actions, &FaultRule::action),
        number_field<uint32_t>("code", &FaultRule::code, 0, any_word),
        number_field<uint32_t>("retcode", &FaultRule::retcode, 0, any_word),
        number_field<uint32_t>("status", &FaultRule::status, 0, any_word),
        number_field<uint32_t>("events", &FaultRule::events, 1, 1000000),
        word_field("tables", fault_table_fates, &FaultRule::keep_tables),
        word_field("target", fault_targets, &FaultRule::target),
        number_field<uint64_t>("nth", &FaultRule::nth, 1, any_count),
        number_field<uint64_t>("from", &FaultRule::from, 1, any_count),
        number_field<uint64_t>("every", &FaultRule::every, 1, any_count),
        {"probability",
         [](const FaultPlanFile &file, const toml::node &value, FaultRule &rule) {
             rule.probability = value.value<double>();
             if (!rule.probability)
                 file.fail(value.source(), "'probability' is a number above 0 and at most 1");
         }},
        number_field<uint64_t>("limit", &FaultRule::limit, 1, any_count),
    };
    return all;
}

// ---- the file ----------------------------------------------------------------------------------

toml::table FaultPlanFile::parse() const
{
    const std::string text = read_file(path_);
    try {
        return toml::parse(text, path_.string());
    } catch (const toml::parse_error &error) {
        fail(error.source(), std::string(error.description()));
    }
}

FaultRule FaultPlanFile::read_rule(const toml::table &table) const
{
    FaultRule rule;
    rule.line = table.source().begin.line;
    rule.column = table.source().begin.column;
    for (const auto &[key, value] : table) {
        const auto field =
            std::find_if(fields().begin(), fields().end(),
                         [&name = key](const Field &known) { return name == known.name; });
        if (field == fields().end()) {
            std::vector<std::string_view> known;
            for (const Field &one : fields())
                known.emplace_back(one.name);
            fail(key.source(), "field '" + std::string(key.str()) + "' is not known" +
                                   nearest_known_name(key.str(), known));
        }
        field->read(*this, value, rule);
    }
    for (const char *needed : {"service", "action"}) {
        if (!table.contains(needed))
            fail(table.source(), "a rule without '" + std::string(needed) + "'");
    }
    if (const auto complaint = complaint_about(rule))
        fail(table.get(complaint->field)->source(), complaint->why);
    return rule;
}

FaultPlan FaultPlanFile::load() const
{
    const toml::table document = parse();
    FaultPlan plan;
    plan.file = path_.string();
    for (const auto &[key, value] : document) {
        if (key == "seed") {
            plan.seed = number<uint64_t>(value, "seed", 0, std::numeric_limits<uint64_t>::max());
            continue;
        }
        if (key != "rule") {
            constexpr std::string_view known[] = {"seed", "rule"};
            fail(key.source(), "'" + std::string(key.str()) + "' is not known" +
                                   nearest_known_name(key.str(), known));
        }
        const toml::array *rules = value.as_array();
        for (size_t i = 0; rules != nullptr && i < rules->size(); i++) {
            const toml::table *rule = rules->get(i)->as_table();
            if (rule == nullptr)
                fail(rules->get(i)->source(), "'rule' is a list of tables, each written [[rule]]");
            plan.rules.push_back(read_rule(*rule));
        }
        if (rules == nullptr)
            fail(value.source(), "'rule' is a list of tables, each written [[rule]]");
    }
    if (plan.rules.empty())
        throw StateError(path_.string() + ": no [[rule]] in it");
    return plan;
}

} // namespace

FaultPlan load_fault_plan(const std::filesystem::path &file)
{
    return FaultPlanFile(file).load();
}

} // namespace vlc
