// SPDX-License-Identifier: MIT
#include "zorvan/platform/clogger.h"

#include "zorvan/platform/unicode.h"

#include <fmt/args.h>
#include <fmt/printf.h>
#include <fmt/xchar.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <mutex>

namespace Logging {

namespace detail {

constinit std::atomic<int> g_minLevel{static_cast<int>(ELogLevel::Warn)};

} // namespace detail

namespace {

struct SinkSlot
{
    std::mutex mutex;
    LogSink sink;
};

SinkSlot& sinkSlot()
{
    // Never destroyed: loggers of other files may still speak while statics go down.
    static auto* slot = new SinkSlot;
    return *slot;
}

std::wstring format(const wchar_t* text, std::span<const detail::Argument> args)
{
    using Context = fmt::basic_printf_context_t<wchar_t>;
    fmt::dynamic_format_arg_store<Context> store;
    for (const auto& arg : args) {
        std::visit(
            [&store](const auto& value) {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, std::string_view>)
                    store.push_back(Zorvan::Widen(value));
                else if constexpr (std::is_same_v<T, std::wstring_view>)
                    store.push_back(std::wstring(value));
                else
                    store.push_back(value);
            },
            arg);
    }
    return fmt::vsprintf(fmt::basic_string_view<wchar_t>(text), fmt::basic_format_args<Context>(store));
}

std::wstring formatOrRaw(const wchar_t* text, std::span<const detail::Argument> args)
{
    try {
        return format(text, args);
    } catch (const std::exception&) {
        return text;
    }
}

spdlog::level::level_enum toSpdlog(ELogLevel level)
{
    switch (level) {
    case ELogLevel::Trace:
        return spdlog::level::trace;
    case ELogLevel::Debug:
        return spdlog::level::debug;
    case ELogLevel::Info:
        return spdlog::level::info;
    case ELogLevel::Warn:
        return spdlog::level::warn;
    case ELogLevel::Error:
        return spdlog::level::err;
    case ELogLevel::Fatal:
        return spdlog::level::critical;
    }
    return spdlog::level::critical;
}

std::string narrowOrEmpty(std::wstring_view text)
{
    try {
        return Zorvan::Narrow(text);
    } catch (const std::range_error&) {
        return "(text is not UTF-16)";
    }
}

void writeToStandardError(const LogRecord& record)
{
    static auto* console = [] {
        // A logger of our own, so that a host's spdlog settings and registry stay as they are.
        auto* logger = new spdlog::logger("zorvan", std::make_shared<spdlog::sinks::stderr_sink_mt>());
        logger->set_level(spdlog::level::trace);
        logger->set_pattern("[%l] %v");
        return logger;
    }();
    console->log(toSpdlog(record.eLevel), "{}: {}", narrowOrEmpty(record.domain), narrowOrEmpty(record.text));
}

} // namespace

void SetLogSink(LogSink sink, ELogLevel minLevel)
{
    auto& slot = sinkSlot();
    const std::lock_guard lock(slot.mutex);
    slot.sink = std::move(sink);
    SetLogLevel(slot.sink ? minLevel : ELogLevel::Warn);
}

void SetLogLevel(ELogLevel minLevel)
{
    detail::g_minLevel.store(static_cast<int>(minLevel), std::memory_order_relaxed);
}

CLogger::CLogger(const wchar_t* domain) : m_domain(domain) {}

void CLogger::write(ELogLevel level, const LogText& text, std::span<const detail::Argument> args) const
{
    const std::wstring message = formatOrRaw(text.format, args);
    const LogRecord record{level, m_domain, text.file, text.line, text.function, message};

    auto& slot = sinkSlot();
    const std::lock_guard lock(slot.mutex);
    if (slot.sink)
        slot.sink(record);
    else
        writeToStandardError(record);
}

} // namespace Logging
