// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <atomic>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace Logging {

enum class ELogLevel
{
    Trace,
    Debug,
    Info,
    Warn,
    Error,
    Fatal
};

/// One message as a sink receives it. The views live as long as the call of the sink.
struct LogRecord
{
    ELogLevel eLevel;
    std::wstring_view domain;
    const char* file;
    int line;
    const char* function;
    std::wstring_view text;
};

using LogSink = std::function<void(const LogRecord&)>;

/// Sends every message of at least `minLevel` to `sink`, of all loggers and from any thread (one call at a time, so the
/// sink needs no lock; it must not log itself). An empty sink restores the default: Warn and above go to standard
/// error.
ZORVAN_API void SetLogSink(LogSink sink, ELogLevel minLevel = ELogLevel::Trace);

/// Sets the level from which messages are passed on, whether to a sink or to standard error.
ZORVAN_API void SetLogLevel(ELogLevel minLevel);

namespace detail {

/// One value for a printf-style text. Text in bytes is taken as UTF-8.
using Argument =
    std::variant<int, unsigned int, long long, unsigned long long, double, std::wstring_view, std::string_view>;

template <typename T>
Argument MakeArgument(const T& value)
{
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<double>(value);
    else if constexpr (std::is_enum_v<T>)
        return static_cast<int>(value);
    else if constexpr (std::is_integral_v<T> && sizeof(T) <= sizeof(int))
        return static_cast<std::conditional_t<std::is_signed_v<T>, int, unsigned int>>(value);
    else if constexpr (std::is_integral_v<T>)
        return static_cast<std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>>(value);
    else
        return Argument(value);
}

extern ZORVAN_API std::atomic<int> g_minLevel;

} // namespace detail

/// A printf-style wide text with the place it is written at; made by the call itself, never by hand.
struct LogText
{
    const wchar_t* format;
    const char* file;
    int line;
    const char* function;

    LogText(const wchar_t* text, const char* sourceFile = __builtin_FILE(), int sourceLine = __builtin_LINE(),
            const char* sourceFunction = __builtin_FUNCTION())
        : format(text), file(sourceFile), line(sourceLine), function(sourceFunction)
    {
    }
};

/// The library's way to report what it does. One file-level object per source file:
///
///     static const Logging::CLogger logger(L"QAV.PreRegistration");
///     logger.Warn(L"computation failed; returning identity (%i pairs)", count);
///
/// A disabled level costs one branch and formats nothing. A text that does not fit its arguments is logged unformatted
/// rather than thrown at the caller. Thread-safe.
class CLogger
{
public:
    ZORVAN_API explicit CLogger(const wchar_t* domain);

    [[nodiscard]] bool IsLogLevelEnabled(ELogLevel level) const
    {
        return static_cast<int>(level) >= detail::g_minLevel.load(std::memory_order_relaxed);
    }

    template <typename... Args>
    void Log(ELogLevel level, const LogText& text, const Args&... args) const
    {
        if (!IsLogLevelEnabled(level)) return;
        if constexpr (sizeof...(Args) == 0) {
            write(level, text, {});
        } else {
            const detail::Argument values[] = {detail::MakeArgument(args)...};
            write(level, text, values);
        }
    }

    template <typename... Args>
    void Trace(const LogText& text, const Args&... args) const
    {
        Log(ELogLevel::Trace, text, args...);
    }

    template <typename... Args>
    void Debug(const LogText& text, const Args&... args) const
    {
        Log(ELogLevel::Debug, text, args...);
    }

    template <typename... Args>
    void Info(const LogText& text, const Args&... args) const
    {
        Log(ELogLevel::Info, text, args...);
    }

    template <typename... Args>
    void Warn(const LogText& text, const Args&... args) const
    {
        Log(ELogLevel::Warn, text, args...);
    }

    template <typename... Args>
    void Error(const LogText& text, const Args&... args) const
    {
        Log(ELogLevel::Error, text, args...);
    }

    template <typename... Args>
    void Fatal(const LogText& text, const Args&... args) const
    {
        Log(ELogLevel::Fatal, text, args...);
    }

private:
    ZORVAN_API void write(ELogLevel level, const LogText& text, std::span<const detail::Argument> args) const;

    const wchar_t* m_domain;
};

} // namespace Logging
