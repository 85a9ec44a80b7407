#include "vlc/error_log.h"

#include <syslog.h>

#include "platform_error_log.h"
#include "tap_words.h"

namespace vlc {

ErrorLog &ErrorLog::instance()
{
    static ErrorLog log;
    return log;
}

void ErrorLog::write(const void *record, const char *text)
{
    if (messages_.size() == remembered)
        messages_.pop_front();
    messages_.push_back({record, text});

    // The log's own identity and options hold for this message alone: the program may use syslog
    // for itself.
    openlog("line-card", LOG_PERROR | LOG_PID, LOG_USER);
    syslog(LOG_ERR, "%s", text);
    closelog();
}

} // namespace vlc

uint32_t zem_errmsg(const void *record, uint32_t severity, const char *text)
{
    if (auto forced = vlc::tapped_call("zem_errmsg", record, severity, text))
        return vlc::forced_as<uint32_t>(*forced);
    if (!text)
        return 22;
    vlc::ErrorLog::instance().write(record, text);
    return 0;
}
