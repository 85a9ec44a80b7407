// Evidence of a failure: what there was to see when the hardware first refused a request.
//
// A bundle is a directory under `evidence` in the state directory, named after its time:
//   answer.txt  the request and why it was not carried out
//   shadow.txt  the entry as the shadow DB has it
//   np.txt      the row as each NP has it
//   trace.txt   what the library said last
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "inline_service_shadowdb.h"
#include "platform_prm.h"
#include "vlc/card_access.h"

namespace inlinectl {

class Evidence {
public:
    static constexpr size_t bundles_kept = 5; // the newest

    // Without a directory nothing is kept.
    explicit Evidence(std::optional<std::filesystem::path> state_directory);

    void notice(const prm_async_response &answer); // only the first that failed counts
    // Writes the bundle of what was noticed, at the first call after it. The library has said by
    // then what it has to say of the answer.
    void write(const shadow_db *root, vlc::CardAccess &card);

    const std::optional<std::filesystem::path> &bundle() const { return bundle_; }
    const std::string &failure() const { return failure_; } // why none could be written

private:
    void write_bundle(const shadow_db *root, vlc::CardAccess &card);

    std::optional<std::filesystem::path> state_directory_;
    std::optional<prm_async_response> answer_;
    int64_t noticed_at_ = 0; // nanoseconds
    bool written_ = false;
    std::optional<std::filesystem::path> bundle_;
    std::string failure_;
};

} // namespace inlinectl
