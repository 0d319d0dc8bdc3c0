// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/clogger.h"

#include <string>
#include <vector>

namespace support {

/// Collects what the library logs while it lives.
class LogCapture
{
public:
    struct Message
    {
        Logging::ELogLevel eLevel;
        std::wstring domain;
        std::wstring text;
        std::string function;
        int line;
    };

    explicit LogCapture(Logging::ELogLevel minLevel = Logging::ELogLevel::Trace)
    {
        Logging::SetLogSink(
            [this](const Logging::LogRecord& r) {
                m_messages.push_back({r.eLevel, std::wstring(r.domain), std::wstring(r.text), r.function, r.line});
            },
            minLevel);
    }
    ~LogCapture() { Logging::SetLogSink(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] const std::vector<Message>& Messages() const { return m_messages; }
    [[nodiscard]] bool Has(std::wstring_view part) const
    {
        for (const auto& message : m_messages) {
            if (message.text.find(part) != std::wstring::npos) return true;
        }
        return false;
    }

private:
    std::vector<Message> m_messages;
};

} // namespace support
