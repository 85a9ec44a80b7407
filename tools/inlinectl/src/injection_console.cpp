#include "injection_console.h"

#include <stdexcept>

#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *verb = "inject";
constexpr uint32_t done = 0;
constexpr uint32_t cannot_be_asked_so = 2;

std::optional<vlc::ConsoleClient> console_of(const std::filesystem::path &state_directory)
{
    try {
        return std::optional<vlc::ConsoleClient>(std::in_place, state_directory);
    } catch (const vlc::StateError &) { // nobody listens
        return std::nullopt;
    }
}

} // namespace

void offer_injections(vlc::HostConsole &console)
{
    console.answer(verb, [](std::string_view request) -> vlc::ConsoleAnswer {
        try {
            return {done, text_of(inject(injection_of(request)))};
        } catch (const std::invalid_argument &wrong) {
            return {cannot_be_asked_so, wrong.what()};
        }
    });
}

std::optional<InjectionReport> inject_through_host(const std::filesystem::path &state_directory,
                                                   const Injection &injection)
{
    std::optional<vlc::ConsoleClient> console = console_of(state_directory);
    if (!console)
        return std::nullopt;
    try {
        const vlc::ConsoleAnswer answer = console->ask(verb, text_of(injection));
        if (answer.status != done)
            throw std::runtime_error(state_directory.string() +
                                     ": the host there injects nothing: " + answer.text);
        return injection_report_of(answer.text);
    } catch (const vlc::StateError &gone) {
        throw std::runtime_error(gone.what());
    }
}

} // namespace inlinectl
