#pragma once

#include <string>

/// printf-style formatting into a string of whatever length the text needs; nothing is cut. Thread-safe.
[[gnu::format(printf, 1, 2)]] std::string KvDescribe(const char* format, ...);
