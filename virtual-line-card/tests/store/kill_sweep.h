// A kill between any two machine instructions.
//
// A child works on a state directory while its parent runs it instruction by instruction and, after
// each, looks at the files as a kill there would leave them. Whenever they differ from the last
// look, they are copied to a second directory, where the test opens them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "vlc/state_directory.h"

namespace vlc::test {

class KillSweep {
public:
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool slow = true; // and some ten times the instructions
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    static constexpr bool slow = true;
#else
    static constexpr bool slow = false;
#endif
#else
    static constexpr bool slow = false;
#endif

    static constexpr uint64_t look_every = slow ? 5 : 1; // so many instructions

    struct Watched {
        std::string file;
        uint64_t bytes = ~uint64_t{0}; // only so many
        uint64_t from = 0;             // and only from here on
        bool is_whole() const { return bytes == ~uint64_t{0} && from == 0; }
    };

    KillSweep(std::filesystem::path directory, const std::filesystem::path &copy,
              std::vector<Watched> watched);
    ~KillSweep();
    KillSweep(const KillSweep &) = delete;
    KillSweep &operator=(const KillSweep &) = delete;

    // In the child: opens and prepares what it needs, and returns the operations to be tried.
    using Operations = std::vector<std::function<void()>>;
    std::function<Operations()> prepare;
    // In the parent: the copy is as a kill left it after `done` whole operations, with nothing or
    // some of the next one done.
    std::function<void(const StateDirectory &copy, uint32_t done)> verify;

    // Prints what it tried, and fails the test when that is less than `least_points` instructions
    // or `least_images` different states of the files.
    void run(uint64_t least_points, uint64_t least_images);

private:
    struct Content {
        bool exists = false;
        std::string bytes;
        bool operator==(const Content &other) const
        {
            return exists == other.exists && (!exists || bytes == other.bytes);
        }
    };
    void look();
    void copy_last_look() const;
    int start_child();
    bool step(int child) const; // false: the child is not stopped by its step
    void look_and_verify(uint32_t done);

    std::filesystem::path directory_;
    StateDirectory copy_;
    std::vector<Watched> watched_;
    std::vector<Content> now_; // one for each file
    std::vector<Content> last_;
    struct Progress;
    Progress *progress_;
    uint64_t images_ = 0;
};

} // namespace vlc::test
