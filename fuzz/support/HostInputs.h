#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "HostConfig.h"
#include "StoreTime.h"
#include "VisibleText.h"

namespace kvfuzz {

/// A configuration with two carriers and a refused one, and with small limits, so that inputs reach them.
inline kvhost::HostConfig SmallConfig() {
    kvhost::HostConfig config;
    for (const char* name : {"alarms", "pager"}) {
        config.carriers[name].name = name;
        config.carriers[name].server = "127.0.0.1:25";
        config.carriers[name].sender = "from@example.org";
    }
    config.refusedCarriers["broken"] = "for a reason";
    config.limits.attachmentBytes = 64;
    config.limits.attachments = 3;
    config.limits.textBytes = 256;
    config.limits.recipients = 4;
    config.http.takesJobs = true;
    config.http.token = "0123456789abcdef";
    config.http.bodyBytes = 2000;
    return config;
}

/// A fixed moment in the year 2026.
inline kvhost::StoreTime Now() {
    return kvhost::FromNumber(1772357400000);
}

/// What may be shown on a terminal and written into a log as a part of one line.
inline bool IsVisible(std::string_view text) {
    return kvhost::MakeVisible(text) == text;
}

}  // namespace kvfuzz
