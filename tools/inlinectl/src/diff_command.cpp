#include "diff_command.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <numeric>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "json_line.h"
#include "nearest_name.h"
#include "numbers.h"
#include "shown_shadow.h"
#include "standard_streams.h"
#include "state_diff.h"
#include "text_table.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  What a replay has changed in a state of which there is a copy:\n"
    "    inlinectl diff before after\n"
    "  The rows of the NPs alone, a JSON object a line:\n"
    "    inlinectl diff before after --only rows --json\n"
    "  What has been counted meanwhile, too:\n"
    "    inlinectl diff before after --counts\n"
    "  Hosts whose cards have directories of their own:\n"
    "    inlinectl diff host1 host2 --card-state1 card1 --card-state2 card2\n"
    "\n"
    "- stands before what only the first has, + before what only the second has, ~ before what is\n"
    "not the same. Nothing is changed, and no lock is taken; no host needs to be up.\n"
    "Exit codes: 0 the same, 1 differences, 2 usage or what cannot be read.";

struct DiffOptions {
    StatePlaces first;
    StatePlaces second;
    DiffSelection selection;
    bool json = false;
};

struct DiffTotals {
    uint64_t only_first = 0;
    uint64_t only_second = 0;
    uint64_t changed = 0;
    uint64_t all() const { return only_first + only_second + changed; }
};

class TextSink final : public DiffSink {
public:
    explicit TextSink(std::ostream &out) : out_(out) {}

    void begin(const char *section) override
    {
        section_ = section;
        rows_.clear();
    }
    void only_in_first(const DiffLabels &labels) override
    {
        ++totals.only_first;
        add("-", labels, {});
    }
    void only_in_second(const DiffLabels &labels) override
    {
        ++totals.only_second;
        add("+", labels, {});
    }
    void changed(const DiffLabels &labels, const DiffField &field) override
    {
        ++totals.changed;
        add("~", labels, {field.name, field.first, field.second});
    }
    void end() override
    {
        if (rows_.empty())
            return;
        TextTable table(columns_);
        std::vector<std::string> heading = heading_;
        if (has_fields_)
            heading.insert(heading.end(), {"field", "first", "second"});
        table.add(heading);
        for (std::vector<std::string> &row : rows_)
            table.add(std::move(row));
        out_ << section_ << "\n";
        table.write(out_);
        out_ << "\n";
        has_fields_ = false;
    }

    DiffTotals totals;

private:
    void add(const char *mark, const DiffLabels &labels, const std::vector<std::string> &field)
    {
        if (rows_.empty()) {
            columns_ = {TextTable::Align::left};
            heading_ = {""};
            for (const DiffLabel &label : labels) {
                columns_.push_back(label.is_number ? TextTable::Align::right
                                                   : TextTable::Align::left);
                heading_.emplace_back(label.name);
            }
            columns_.insert(columns_.end(), 3, TextTable::Align::left);
        }
        std::vector<std::string> row{mark};
        for (const DiffLabel &label : labels)
            row.push_back(label.text);
        row.insert(row.end(), field.begin(), field.end());
        has_fields_ = has_fields_ || !field.empty();
        rows_.push_back(std::move(row));
    }

    std::ostream &out_;
    const char *section_ = "";
    std::vector<TextTable::Align> columns_;
    std::vector<std::string> heading_;
    std::vector<std::vector<std::string>> rows_;
    bool has_fields_ = false;
};

class JsonSink final : public DiffSink {
public:
    explicit JsonSink(JsonLines &lines) : lines_(lines) {}

    void begin(const char *section) override { section_ = section; }
    void only_in_first(const DiffLabels &labels) override
    {
        ++totals.only_first;
        put("only_first", labels).end();
    }
    void only_in_second(const DiffLabels &labels) override
    {
        ++totals.only_second;
        put("only_second", labels).end();
    }
    void changed(const DiffLabels &labels, const DiffField &field) override
    {
        ++totals.changed;
        put("changed", labels).text("field", field.name).text("first", field.first);
        lines_.text("second", field.second).end();
    }
    void end() override {}

    DiffTotals totals;

private:
    JsonLines &put(const char *change, const DiffLabels &labels)
    {
        lines_.begin("difference").text("section", section_).text("change", change);
        for (const DiffLabel &label : labels) {
            if (label.is_number)
                lines_.number(label.name, std::stoull(label.text));
            else
                lines_.text(label.name, label.text);
        }
        return lines_;
    }

    JsonLines &lines_;
    const char *section_ = "";
};

// What cannot be read of one is left out of both: nobody knows whether it is the same.
void leave_out_unread(Snapshot &first, Snapshot &second)
{
    for (uint32_t np = 0; np < std::min(first.nps.size(), second.nps.size()); ++np) {
        if (first.nps[np].unread.empty() && second.nps[np].unread.empty())
            continue;
        for (Snapshot *state : {&first, &second}) {
            std::erase_if(state->np_rows, [np](const SnapshotRow &row) { return row.np == np; });
            state->nps[np].totals = {};
            for (size_t entry = 0; entry < state->entries.size(); ++entry)
                state->rows[entry * state->nps.size() + np] = {};
        }
    }
}

Snapshot taken(const StatePlaces &places)
{
    Snapshot state = take_snapshot(places, {.rows = true, .contents = true, .totals = true});
    if (!state.shadow_unread.empty())
        throw UsageError(state.shadow_unread);
    return state;
}

void write_text(std::ostream &out, const Snapshot &first, const Snapshot &second,
                const DiffOptions &options, DiffTotals &totals)
{
    TextSink sink(out);
    compare(first, second, options.selection, sink);
    totals = sink.totals;
    if (totals.all() == 0)
        out << (first.notes.empty() && second.notes.empty() ? "The states are the same.\n"
                                                            : "What could be read is the same.\n");
    else
        out << counted(totals.all(), "difference", "differences") << ": "
            << grouped(totals.only_first) << " only in the first, " << grouped(totals.only_second)
            << " only in the second, " << grouped(totals.changed) << " changed\n";
    write_notes_text(out, first.notes);
    write_notes_text(out, second.notes);
}

void write_json(std::ostream &out, const Snapshot &first, const Snapshot &second,
                const DiffOptions &options, DiffTotals &totals)
{
    JsonLines lines(out);
    JsonSink sink(lines);
    compare(first, second, options.selection, sink);
    totals = sink.totals;
    lines.begin("totals").number("differences", totals.all());
    lines.number("only_first", totals.only_first).number("only_second", totals.only_second);
    lines.number("changed", totals.changed).end();
    for (const Snapshot *state : {&first, &second}) {
        for (const std::string &note : state->notes) {
            lines.begin("note").text("text", note);
            lines.end();
        }
    }
}

int perform(const DiffOptions &options)
{
    try {
        // One after the other: a window has one address in every process.
        Snapshot first = taken(options.first);
        Snapshot second = taken(options.second);
        leave_out_unread(first, second);
        DiffTotals totals;
        (options.json ? write_json : write_text)(std::cout, first, second, options, totals);
        if (!standard_output_arrived()) {
            std::fprintf(stderr, "inlinectl: the report could not be written\n");
            return exit_usage;
        }
        if (totals.all() > 0)
            return exit_failed;
        return first.notes.empty() && second.notes.empty() ? exit_fine : exit_usage;
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

void declare(CLI::App &app, DiffOptions &options)
{
    app.add_option("first", options.first.state_directory, "A host's state")
        ->type_name("DIR1")
        ->required();
    app.add_option("second", options.second.state_directory, "Another")
        ->type_name("DIR2")
        ->required();
    declare_card_places(app, options.first, "1");
    declare_card_places(app, options.second, "2");
    const std::vector<std::string> names = diff_sections();
    const std::string list = std::accumulate(
        std::next(names.begin()), names.end(), names.front(),
        [](const std::string &all, const std::string &one) { return all + ", " + one; });
    app.add_option_function<std::vector<std::string>>(
           "--only",
           [&options](const std::vector<std::string> &given) {
               options.selection.only.insert(given.begin(), given.end());
           },
           "Only these parts: " + list)
        ->type_name("PART")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(
            [names](const std::string &name) {
                return std::ranges::find(names, name) != names.end()
                           ? ""
                           : "there is no part '" + name + "'" + did_you_mean(name, names);
            },
            ""));
    app.add_flag("--counts", options.selection.counts,
                 "Compare what has been counted too: packets, bytes, statistics passes");
    app.add_flag("--json", options.json, "Write JSON, an object a line");
    app.footer(examples);
}

} // namespace

Command diff_command()
{
    const auto options = std::make_shared<DiffOptions>();
    return {.name = "diff",
            .summary = "Tell what two states have apart",
            .words_hint = "two states are compared",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check =
                [options] {
                    check_card_places(options->first);
                    check_card_places(options->second);
                },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
