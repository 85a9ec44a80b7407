#include "hardware_failures.h"

#include <array>
#include <string_view>

#include "answer_table.h"
#include "platform_prm.h"
#include "vlc/event_debug.h"

namespace inlinectl {
namespace {

constexpr const char *library_component = "inlc";
constexpr std::string_view late_answer_message = "PRM async call failed(v4)";
// np, flags, refnum, key size, result size, text of the status
constexpr size_t late_answer_arguments = 6;
constexpr std::array<std::string_view, 2> step_messages{"SVC CONF ", "SVC EXT_DB "};
constexpr std::string_view step_message_end = " failed:  rc=%s (%d)";
constexpr size_t step_arguments = 2;

bool names_a_step(std::string_view format)
{
    for (const std::string_view begin : step_messages) {
        if (format.starts_with(begin) && format.find(step_message_end) != std::string_view::npos)
            return true;
    }
    return false;
}

std::string name_in(const auto &names, uint32_t number)
{
    return number < names.size() ? names[number] : std::to_string(number);
}

} // namespace

std::string table_name(uint32_t table)
{
    static constexpr std::array names{"service config", "ext conf", "flow"};
    return name_in(names, table);
}

std::string operation_name(uint32_t operation)
{
    static constexpr std::array names{"add", "modify", "delete"};
    return name_in(names, operation);
}

void HardwareFailures::look()
{
    const vlc::EventDebug &registry = vlc::EventDebug::instance();
    const ed_component *library = registry.component(library_component);
    if (library == nullptr)
        return;
    for (const vlc::TraceEvent &event : registry.events(library, ED_ERROR_BUFFER)) {
        if (event.sequence < next_sequence_)
            continue;
        missed_ += event.sequence - next_sequence_;
        next_sequence_ = event.sequence + 1;
        if (event.point != nullptr)
            take(event);
    }
}

void HardwareFailures::take(const vlc::TraceEvent &event)
{
    const std::string_view format = event.point->format;
    if (format.starts_with(late_answer_message) && event.args.size() >= late_answer_arguments) {
        const auto refnum = static_cast<uint32_t>(event.args[2]);
        ++late_answers_[{.np = static_cast<uint32_t>(event.args[0]),
                         .table = number_of_table(refnum, static_cast<uint32_t>(event.args[1])),
                         .operation = refnum >> PRM_REFNUM_OP_SHIFT,
                         .reason = event.texts[5]}];
    } else if (names_a_step(format) && event.args.size() >= step_arguments) {
        const size_t end = format.find(step_message_end);
        ++refused_steps_[{.step = std::string(format.substr(0, end)), .reason = event.texts[0]}];
    }
}

uint64_t HardwareFailures::count() const
{
    uint64_t sum = 0;
    for (const auto &[what, times] : late_answers_)
        sum += times;
    for (const auto &[what, times] : refused_steps_)
        sum += times;
    return sum;
}

} // namespace inlinectl
