#include "evidence.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <vector>

#include "evidence_text.h"
#include "utc_time.h"
#include "vlc/event_manager.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

namespace fs = std::filesystem;

constexpr const char *unfinished = "unfinished";

// A name that sorts by time and that every file system takes.
std::string bundle_name(int64_t nanoseconds)
{
    std::string name = utc_text(nanoseconds);
    std::ranges::replace(name, ':', '-');
    return name;
}

bool is_bundle(const fs::directory_entry &entry)
{
    static const std::regex name("[0-9]{4}-[0-9]{2}-[0-9]{2}T[-0-9]{8}\\.[0-9]{9}Z");
    return entry.is_directory() && std::regex_match(entry.path().filename().string(), name);
}

void remove_all_but_the_newest(const fs::path &directory, size_t kept)
{
    std::vector<fs::path> bundles;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
        if (is_bundle(entry))
            bundles.push_back(entry.path());
    }
    std::ranges::sort(bundles);
    for (size_t i = 0; i + kept < bundles.size(); ++i)
        fs::remove_all(bundles[i]);
}

template <typename Write>
void write_file(const fs::path &path, const Write &write)
{
    std::ofstream file(path);
    write(file);
    file.close();
    if (!file)
        throw std::runtime_error(path.string() + ": could not be written");
}

} // namespace

Evidence::Evidence(std::optional<fs::path> state_directory)
    : state_directory_(std::move(state_directory))
{
}

void Evidence::notice(const prm_async_response &answer)
{
    if (answer.status == 0 || answer_)
        return;
    answer_ = answer;
    noticed_at_ = vlc::CardClock::now().count();
}

void Evidence::write(const shadow_db *root, vlc::CardAccess &card)
{
    if (!state_directory_ || !answer_ || written_)
        return;
    written_ = true;
    try {
        write_bundle(root, card);
    } catch (const std::exception &error) {
        failure_ = error.what();
    }
}

// It has its name only when it is whole, so a kill leaves no half bundle.
void Evidence::write_bundle(const shadow_db *root, vlc::CardAccess &card)
{
    const fs::path all = *state_directory_ / "evidence";
    const fs::path made = all / unfinished;
    fs::remove_all(made);
    fs::create_directories(made);
    write_file(made / "answer.txt",
               [this](std::ostream &out) { write_answer(out, *answer_, noticed_at_); });
    write_file(made / "shadow.txt", [&](std::ostream &out) {
        write_shadow_entry(out, *answer_, root, card.config().num_nps);
    });
    write_file(made / "np.txt", [&](std::ostream &out) { write_np_rows(out, *answer_, card); });
    write_file(made / "trace.txt", [](std::ostream &out) { write_trace(out); });
    const fs::path bundle = all / bundle_name(noticed_at_);
    fs::rename(made, bundle);
    bundle_ = bundle;
    remove_all_but_the_newest(all, bundles_kept);
}

} // namespace inlinectl
