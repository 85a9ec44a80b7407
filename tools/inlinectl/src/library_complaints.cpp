#include "library_complaints.h"

#include <string_view>

#include "vlc/error_log.h"
#include "vlc/event_debug.h"

namespace inlinectl {
namespace {

constexpr const char *library_component = "inlc";

// The library logs every late answer as a failure, those that say "Success" too.
bool is_good_answer(const vlc::TraceEvent &event)
{
    constexpr std::string_view late_answer = "Async Error";
    constexpr size_t status = 1; // its place among the arguments
    return event.point != nullptr &&
           std::string_view(event.point->format).starts_with(late_answer) &&
           event.args.size() > status && event.args[status] == 0;
}

} // namespace

LibraryComplaints::LibraryComplaints()
{
    look();
}

std::vector<std::string> LibraryComplaints::look()
{
    std::vector<std::string> said;
    const vlc::EventDebug &registry = vlc::EventDebug::instance();
    const ed_component *library = registry.component(library_component);
    if (library != nullptr) {
        for (const vlc::TraceEvent &event : registry.events(library, ED_ERROR_BUFFER)) {
            if (event.sequence < next_sequence_)
                continue;
            next_sequence_ = event.sequence + 1;
            if (!is_good_answer(event))
                said.push_back(vlc::trace_text(event));
        }
    }
    for (const vlc::ErrorMessage &message : vlc::ErrorLog::instance().messages())
        said.push_back(message.text.substr(0, message.text.find_last_not_of('\n') + 1));
    vlc::ErrorLog::instance().clear();
    return said;
}

} // namespace inlinectl
