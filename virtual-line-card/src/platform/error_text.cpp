#include "error_text.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform_error_text.h"
#include "tap_words.h"
#include "vlc/prm.h"

namespace vlc {

namespace {

constexpr uint32_t first_prm_code = PRM_RESPONSE_QUEUE_EMPTY;
constexpr std::array prm_texts = {
    "PRM: response queue is empty",
    "PRM: no such service-request handle",
    "PRM: bad configuration record",
    "PRM: not connected",
    "PRM: key exists already",
    "PRM: key not found",
    "PRM: table is full",
    "PRM: key or result is wider than a row of the table",
    "PRM: no service-request handle left",
    "PRM: no handle of that name",
    "PRM: no room for the answer",
    "PRM: no such counter",
    "PRM: no dynamic counter left",
    "PRM: no such statistics table",
};
static_assert(prm_texts.size() == prm_bad_statistics_table - first_prm_code + 1,
              "every code of PRM has its text");

const char *unknown_text(uint32_t code)
{
    // Nodes of a map keep their address. Never destroyed: texts stay good until the process ends.
    static auto &texts = *new std::unordered_map<uint32_t, std::string>;
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    auto [place, is_new] = texts.try_emplace(code);
    if (is_new) {
        char text[32];
        std::snprintf(text, sizeof text, "Unknown error 0x%x", code);
        place->second = text;
    }
    return place->second.c_str();
}

} // namespace

const char *error_text(uint32_t code)
{
    if (code >= first_prm_code && code - first_prm_code < prm_texts.size())
        return prm_texts[code - first_prm_code];
    if (const char *text = strerrordesc_np(static_cast<int>(code)))
        return text;
    return unknown_text(code);
}

} // namespace vlc

const char *cerr_strerror(uint32_t code)
{
    if (auto forced = vlc::tapped_call("cerr_strerror", code))
        return vlc::forced_as<const char *>(*forced);
    return vlc::error_text(code);
}
