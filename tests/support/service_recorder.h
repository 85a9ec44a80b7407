// Records the platform services that the library calls, in order, and makes chosen calls answer as
// the test wants.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "vlc/service_tap.h"

namespace test {

struct RecordedCall {
    std::string service;
    std::vector<uint64_t> args;
};

class ServiceRecorder {
public:
    ServiceRecorder(); // on the services for as long as it lives
    ServiceRecorder(const ServiceRecorder &) = delete;
    ServiceRecorder &operator=(const ServiceRecorder &) = delete;

    // Trace and debug services are left out unless asked for: every message calls them.
    void record_debug_services(bool record) { record_debug_ = record; }

    // From the n-th call on (1 is the next one), `times` calls of the service give `result` instead
    // of being carried out; times 0 means for ever.
    void force(const std::string &service, uint64_t result, uint64_t nth = 1, uint64_t times = 0);
    // Lets a function decide: it may fill outputs, and returns the result, or nothing to let the
    // call happen.
    using Script = std::function<std::optional<uint64_t>(const vlc::ServiceCall &)>;
    void script(const std::string &service, Script script);
    // Sees every call that is recorded, before it is carried out.
    void observe(std::function<void(const vlc::ServiceCall &)> observer)
    {
        observer_ = std::move(observer);
    }
    void stop_forcing();

    void forget(); // the calls recorded so far
    const std::vector<RecordedCall> &calls() const { return calls_; }
    std::vector<RecordedCall> calls_of(const std::string &service) const;
    size_t count(const std::string &service) const { return calls_of(service).size(); }
    // Names in order.
    std::vector<std::string> names() const;

private:
    struct Rule {
        uint64_t skip;
        uint64_t times; // 0: for ever
        uint64_t result;
    };
    std::optional<uint64_t> on_call(const vlc::ServiceCall &call);

    bool record_debug_ = false;
    std::vector<RecordedCall> calls_;
    std::map<std::string, Rule> rules_;
    std::map<std::string, Script> scripts_;
    std::function<void(const vlc::ServiceCall &)> observer_;
    vlc::AddedServiceTap tap_; // last: what it calls is there before it
};

} // namespace test
