// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

/// An exception that says where in the sources it was raised. `what()` is the message alone.
class HfException : public std::runtime_error
{
public:
    HfException(const char* file, int line, const std::string& message)
        : std::runtime_error(message), m_file(file), m_line(line)
    {
    }

    /// The source file, as the compiler names it.
    [[nodiscard]] const char* GetFile() const noexcept { return m_file; }
    [[nodiscard]] int GetLine() const noexcept { return m_line; }

private:
    const char* m_file;
    int m_line;
};

/// Carries an exception and the ones that led to it, from the outermost to the cause.
class HfExceptionContainer : public HfException
{
public:
    HfExceptionContainer(const char* file, int line, const std::string& message,
                         std::shared_ptr<const HfException> cause = nullptr)
        : HfException(file, line, message), m_cause(std::move(cause))
    {
    }

    /// What led to this exception, or null.
    [[nodiscard]] const std::shared_ptr<const HfException>& GetCause() const noexcept { return m_cause; }

private:
    std::shared_ptr<const HfException> m_cause;
};
