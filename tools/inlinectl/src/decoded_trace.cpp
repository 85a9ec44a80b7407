#include "decoded_trace.h"

#include <algorithm>
#include <map>
#include <span>

#include "numbers.h"
#include "platform_event_debug.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

namespace fs = std::filesystem;
using Kind = vlc::EventArgument::Kind;

bool is_there(const fs::path &path)
{
    return fs::exists(fs::symlink_status(path));
}

std::vector<std::string> names_of(const vlc::StoredSite *site, size_t count)
{
    std::vector<std::string> names = site ? site->arg_names : std::vector<std::string>();
    names.resize(count);
    std::map<std::string, int> seen;
    for (size_t i = 0; i < count; ++i) {
        if (names[i].empty())
            names[i] = "argument " + std::to_string(i + 1);
        if (const int times = ++seen[names[i]]; times > 1)
            names[i] += "#" + std::to_string(times);
    }
    return names;
}

// Texts end where they were cut, and say so nowhere: that is the trace's own limit.
void decode_arguments(DecodedEvent &event)
{
    const vlc::TraceRecord &record = event.record;
    const std::span<const uint64_t> words(record.args.data(), record.arg_count);
    const std::vector<std::string> texts = vlc::texts_of(record);
    const std::string format = event.site ? event.site->format : "";
    const vlc::EventText rendered =
        vlc::render_kept_event(format.c_str(), words, record.strings, texts);
    const auto values = vlc::event_arguments(format.c_str(), words);
    const std::vector<std::string> names = names_of(event.site, words.size());
    for (size_t i = 0; i < words.size(); ++i) {
        DecodedArgument argument{names[i], "", values[i], texts[i]};
        if (!event.site && (record.strings >> i & 1) != 0)
            argument.value.kind = Kind::text;
        if (i < rendered.arguments.size())
            argument.shown = rendered.arguments[i];
        else if (argument.value.kind == Kind::text)
            argument.shown = '"' + texts[i] + '"';
        else
            argument.shown = vlc::render_event("%#lx", words.subspan(i, 1)).text;
        argument.shown = printable(argument.shown);
        event.arguments.push_back(std::move(argument));
    }
    event.text = event.site ? printable(vlc::on_one_line(rendered.text))
                            : "event " + std::to_string(event.number()) + " of no known site";
}

// The notes of one directory, each with the file that it is about.
class Decoder {
public:
    explicit Decoder(const fs::path &directory) : directory_(directory)
    {
        for (const std::string &component : vlc::traced_components(directory))
            decode(component);
        if (!failure_.empty() && !was_read_)
            throw vlc::StateError(failure_);
        std::ranges::stable_sort(trace.events, {},
                                 [](const DecodedEvent &event) { return event.record.order; });
    }

    DecodedTrace trace;

private:
    void decode(const std::string &component)
    {
        const vlc::StoredSites *sites = read_sites(component);
        for (const char *buffer : trace_buffers) {
            const fs::path file = directory_ / vlc::trace_file_name(component, buffer);
            if (is_there(file))
                decode(component, buffer, file, sites);
        }
    }

    const vlc::StoredSites *read_sites(const std::string &component)
    {
        const fs::path file = directory_ / vlc::sites_file_name(component);
        if (!is_there(file))
            return nullptr;
        try {
            auto sites = std::make_unique<vlc::StoredSites>(vlc::read_sites(file));
            return trace.sites.emplace_back(std::move(sites)).get();
        } catch (const vlc::StateError &error) {
            fail(error.what());
            return nullptr;
        }
    }

    void decode(const std::string &component, const char *buffer, const fs::path &file,
                const vlc::StoredSites *sites)
    {
        trace.has_files = true;
        try {
            const vlc::StoredTrace stored = vlc::read_trace(file);
            was_read_ = true;
            note(file, stored.unfinished, "left out: a kill came in between");
            note(file, stored.damaged, "left out: damaged");
            trace.is_damaged |= stored.damaged > 0;
            for (const vlc::TraceRecord &record : stored.events)
                trace.events.push_back(decode_event(component, record, sites));
            for (DecodedEvent &event : std::span(trace.events).last(stored.events.size()))
                event.buffer = buffer;
        } catch (const vlc::StateError &error) {
            fail(error.what());
        }
    }

    void fail(const std::string &why)
    {
        failure_ = failure_.empty() ? why : failure_;
        trace.is_damaged = true;
        trace.notes.push_back(why);
    }

    void note(const fs::path &file, uint32_t count, const char *what)
    {
        if (count > 0)
            trace.notes.push_back(file.string() + ": " + counted(count, "event", "events") + " " +
                                  what);
    }

    const fs::path &directory_;
    bool was_read_ = false;
    std::string failure_; // the first
};

} // namespace

uint32_t DecodedEvent::number() const
{
    return static_cast<uint32_t>(record.event_word & ((uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1));
}

DecodedEvent decode_event(const std::string &component, const vlc::TraceRecord &record,
                          const vlc::StoredSites *sites)
{
    DecodedEvent event{
        .component = component, .buffer = "", .record = record, .text = "", .arguments = {}};
    if (sites && sites->check == record.sites)
        event.site = sites->site(event.number());
    event.buffer = trace_buffers[event.site && event.site->trace_buffer != 0 ? 1 : 0];
    decode_arguments(event);
    return event;
}

DecodedTrace decode_trace(const fs::path &state_directory)
{
    const vlc::StateDirectory directory(state_directory, vlc::Access::read_only);
    return std::move(Decoder(directory.path()).trace);
}

std::string printable(std::string text)
{
    std::ranges::replace_if(
        text,
        [](char letter) {
            const auto byte = static_cast<unsigned char>(letter);
            return byte < 0x20 || byte == 0x7F;
        },
        '?');
    return text;
}

std::string site_place(const vlc::StoredSite &site)
{
    return printable(site.file.substr(site.file.rfind('/') + 1)) + ":" + std::to_string(site.line);
}

} // namespace inlinectl
