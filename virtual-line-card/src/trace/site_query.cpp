#include "vlc/site_query.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "vlc/nearest_name.h"

namespace vlc {

namespace {

struct FlagLetter {
    char letter;
    uint16_t flag;
};
constexpr std::array<FlagLetter, 6> flag_letter_table{{{'p', ED_PRINT},
                                                       {'s', ED_SLOW},
                                                       {'l', ED_LINE},
                                                       {'i', ED_INVERT},
                                                       {'q', ED_SUPPRESS_PRINT},
                                                       {'x', ED_SUPPRESS_ALL}}};

struct Token {
    std::string text;
    size_t column; // from 1
    bool quoted;
};
using Tokens = std::vector<Token>;

// Splits at blanks and, into queries, at semicolons; quotes keep both together.
class Splitter {
public:
    explicit Splitter(std::string_view text) : text_(text) {}

    std::vector<Tokens> queries()
    {
        std::vector<Tokens> queries(1);
        while (at_ < text_.size()) {
            if (text_[at_] == ';' || text_[at_] == '\n') {
                queries.emplace_back();
                ++at_;
            } else if (is_blank(text_[at_])) {
                ++at_;
            } else {
                queries.back().push_back(token());
            }
        }
        std::erase_if(queries, [](const Tokens &tokens) { return tokens.empty(); });
        return queries;
    }

private:
    static bool is_blank(char letter) { return letter == ' ' || letter == '\t'; }
    static bool ends_token(char letter)
    {
        return is_blank(letter) || letter == ';' || letter == '\n';
    }

    Token token()
    {
        Token token{"", at_ + 1, false};
        while (at_ < text_.size() && !ends_token(text_[at_])) {
            if (text_[at_] == '"' || text_[at_] == '\'') {
                token.quoted = true;
                take_quoted(token.text);
            } else {
                token.text += text_[at_++];
            }
        }
        return token;
    }

    void take_quoted(std::string &taken)
    {
        const size_t begin = at_;
        const char quote = text_[at_++];
        while (at_ < text_.size() && text_[at_] != quote) {
            const bool escaped = text_[at_] == '\\' && at_ + 1 < text_.size() &&
                                 (text_[at_ + 1] == quote || text_[at_ + 1] == '\\');
            at_ += escaped ? 1 : 0;
            taken += text_[at_++];
        }
        if (at_ == text_.size())
            throw SiteQueryError(begin + 1, "the quote does not end");
        ++at_;
    }

    std::string_view text_;
    size_t at_ = 0;
};

bool matches(const std::string &pattern, const std::string &text)
{
    return fnmatch(pattern.c_str(), text.c_str(), FNM_NOESCAPE) == 0;
}

// The whole path, or the name with or without its extension, from its begin or behind any of its
// underscores: "shadowdb*" is meant for inline_service_shadowdb_util.cpp.
bool matches_file(const std::string &pattern, const std::string &path)
{
    if (matches(pattern, path))
        return true;
    std::string name = path.substr(path.rfind('/') + 1);
    for (;;) {
        if (matches(pattern, name) || matches(pattern, name.substr(0, name.rfind('.'))))
            return true;
        const size_t underscore = name.find('_');
        if (underscore == std::string::npos)
            return false;
        name.erase(0, underscore + 1);
    }
}

uint32_t number_of(const Token &value, std::string_view digits, const std::string &what)
{
    uint32_t number = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (read.ec != std::errc() || read.ptr != digits.data() + digits.size())
        throw SiteQueryError(value.column, "'" + value.text + "' is no " + what);
    return number;
}

using Word = std::function<bool(const StoredSite &)>;

Word file_word(const Token &value)
{
    return
        [pattern = value.text](const StoredSite &site) { return matches_file(pattern, site.file); };
}

Word function_word(const Token &value)
{
    return
        [pattern = value.text](const StoredSite &site) { return matches(pattern, site.function); };
}

Word format_word(const Token &value)
{
    return [part = value.text](const StoredSite &site) {
        return site.format.find(part) != std::string::npos;
    };
}

Word line_word(const Token &value)
{
    static const std::string what = "line or range of lines: N, N-M, N- or -M";
    const std::string_view text = value.text;
    const size_t dash = text.find('-');
    uint32_t first = 0;
    uint32_t last = std::numeric_limits<uint32_t>::max();
    if (dash == std::string_view::npos) {
        first = last = number_of(value, text, what);
    } else {
        if (text.size() == 1)
            throw SiteQueryError(value.column, "'" + value.text + "' is no " + what);
        if (dash > 0)
            first = number_of(value, text.substr(0, dash), what);
        if (dash + 1 < text.size())
            last = number_of(value, text.substr(dash + 1), what);
    }
    if (first > last)
        throw SiteQueryError(value.column, "'" + value.text + "' ends before it begins");
    return
        [first, last](const StoredSite &site) { return site.line >= first && site.line <= last; };
}

Word number_word(const Token &value)
{
    const uint32_t number = number_of(value, value.text, "number of a site");
    return [number](const StoredSite &site) { return site.number == number; };
}

Word level_word(const Token &value)
{
    static constexpr std::array<std::string_view, 2> levels{"event", "error"};
    const auto found = std::ranges::find(levels, value.text);
    if (found == levels.end())
        throw SiteQueryError(value.column, "'" + value.text + "' is no level, which are 'event' " +
                                               "and 'error'" +
                                               nearest_known_name(value.text, levels));
    const auto level = static_cast<uint8_t>(found - levels.begin());
    return [level](const StoredSite &site) { return site.level == level; };
}

struct WordKind {
    std::string_view name;
    const char *value; // what stands behind it
    Word (*make)(const Token &value);
};
constexpr std::array<WordKind, 6> word_kinds{{{"file", "a pattern", file_word},
                                              {"func", "a pattern", function_word},
                                              {"line", "a line or a range", line_word},
                                              {"format", "a text", format_word},
                                              {"number", "a number", number_word},
                                              {"level", "'event' or 'error'", level_word}}};
constexpr std::string_view condition_word = "arg";

bool is_change(const Token &token)
{
    return !token.quoted && std::string_view("+-=").find(token.text[0]) != std::string_view::npos;
}

FlagChange change_of(const Token &token)
{
    FlagChange change{token.text[0], 0};
    const std::string letters = token.text.substr(1);
    if (letters.empty())
        throw SiteQueryError(token.column,
                             "letters of flags are missing behind '" + token.text + "'");
    if (letters == "_" && change.how == '=')
        return change;
    for (size_t i = 0; i < letters.size(); ++i) {
        const auto known = std::ranges::find(flag_letter_table, letters[i], &FlagLetter::letter);
        if (known == flag_letter_table.end())
            throw SiteQueryError(token.column + 1 + i, "'" + letters.substr(i, 1) +
                                                           "' is no flag, which are p, s, l, i, " +
                                                           "q and x, and _ alone behind '='");
        change.flags |= known->flag;
    }
    return change;
}

class Parser {
public:
    explicit Parser(const Tokens &tokens) : tokens_(tokens) {}

    SiteQuery parse()
    {
        while (at_ < tokens_.size()) {
            const Token &token = tokens_[at_++];
            if (query_.change)
                throw SiteQueryError(token.column, "'" + token.text +
                                                       "' stands behind the change, which ends a "
                                                       "query; ';' begins the next");
            if (!token.text.empty() && is_change(token))
                query_.change = change_of(token);
            else
                take_word(token);
        }
        return std::move(query_);
    }

private:
    const Token &value_behind(const Token &word, const char *what)
    {
        if (at_ == tokens_.size())
            throw SiteQueryError(word.column + word.text.size(),
                                 std::string(what) + " is missing behind '" + word.text + "'");
        return tokens_[at_++];
    }

    void take_word(const Token &token)
    {
        if (token.text == condition_word) {
            take_condition(value_behind(token, "NAME=VALUE"));
            return;
        }
        const auto kind = std::ranges::find(word_kinds, token.text, &WordKind::name);
        if (kind != word_kinds.end()) {
            query_.words.push_back(kind->make(value_behind(token, kind->value)));
            return;
        }
        std::vector<std::string_view> names{condition_word};
        for (const WordKind &known : word_kinds)
            names.push_back(known.name);
        throw SiteQueryError(token.column, "'" + token.text + "' is no word of a query" +
                                               nearest_known_name(token.text, names));
    }

    void take_condition(const Token &value)
    {
        // Names are expressions, and some compare; the value is behind the last sign.
        const size_t equals = value.text.rfind('=');
        if (equals == std::string::npos || equals == 0)
            throw SiteQueryError(value.column, "'" + value.text + "' is no NAME=VALUE");
        SiteCondition condition{value.text.substr(0, equals), value.text.substr(equals + 1)};
        query_.words.emplace_back([name = condition.name](const StoredSite &site) {
            return std::ranges::find(site.arg_names, name) != site.arg_names.end();
        });
        query_.conditions.push_back(std::move(condition));
    }

    const Tokens &tokens_;
    size_t at_ = 0;
    SiteQuery query_;
};

size_t end_column(const Tokens &tokens)
{
    return tokens.back().column + tokens.back().text.size();
}

size_t column_of_condition(const Tokens &tokens)
{
    return std::ranges::find(tokens, condition_word, &Token::text)->column;
}

} // namespace

uint16_t FlagChange::applied_to(uint16_t before) const
{
    if (how == '+')
        return before | flags;
    if (how == '-')
        return static_cast<uint16_t>(before & ~flags);
    return ED_DEFAULT_FLAGS | flags;
}

bool SiteQuery::selects(const StoredSite &site) const
{
    return std::ranges::all_of(words, [&site](const auto &word) { return word(site); });
}

std::vector<SiteQuery> parse_site_changes(std::string_view text)
{
    std::vector<SiteQuery> queries;
    for (const Tokens &tokens : Splitter(text).queries()) {
        queries.push_back(Parser(tokens).parse());
        const SiteQuery &query = queries.back();
        if (!query.change)
            throw SiteQueryError(end_column(tokens), "the change is missing at the end, as '+p'");
        const bool slow = query.change->how != '-' && (query.change->flags & ED_SLOW) != 0;
        if (!query.conditions.empty() && !slow)
            throw SiteQueryError(column_of_condition(tokens),
                                 "'arg' is a condition of slow sites and goes with '+s' or '=s'");
    }
    if (queries.empty())
        throw SiteQueryError(1, "there is no query");
    return queries;
}

SiteQuery parse_site_selection(std::string_view text)
{
    const std::vector<Tokens> queries = Splitter(text).queries();
    if (queries.empty())
        return {};
    if (queries.size() > 1)
        throw SiteQueryError(queries[1].front().column, "one query selects, and here is another");
    SiteQuery query = Parser(queries.front()).parse();
    if (query.change)
        throw SiteQueryError(queries.front().back().column, "'" + queries.front().back().text +
                                                                "' changes, and this only selects");
    if (!query.conditions.empty())
        throw SiteQueryError(column_of_condition(queries.front()),
                             "'arg' goes with '+s' or '=s', and this only selects");
    return query;
}

std::string flag_letters(uint16_t flags)
{
    std::string letters;
    for (const FlagLetter &known : flag_letter_table) {
        if ((flags & known.flag) != 0)
            letters += known.letter;
    }
    return letters.empty() ? "_" : letters;
}

} // namespace vlc
