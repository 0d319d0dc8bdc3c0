// SPDX-License-Identifier: MIT
#include "zorvan/documents/namematch.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace bson::detail {

namespace {

/// Where the calling function stands on the stack. Not the address of a variable, which a sanitizer may put elsewhere.
std::uintptr_t stackPlace()
{
#if defined(__GNUC__)
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
#else
    const volatile char here = 0;
    return reinterpret_cast<std::uintptr_t>(&here);
#endif
}

/// A place in a name that ends a match which recurses too deep: a matcher that recurses reads a character on every
/// round.
class CGuardedPlace
{
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CGuardedPlace() = default;
    CGuardedPlace(const char* place, std::uintptr_t stackStart) : m_place(place), m_stackStart(stackStart) {}

    reference operator*() const
    {
        constexpr std::uintptr_t uiMaxStack = 1 << 20;
        const std::uintptr_t here = stackPlace();
        if ((here < m_stackStart ? m_stackStart - here : here - m_stackStart) > uiMaxStack)
            throw std::regex_error(std::regex_constants::error_stack);
        return *m_place;
    }
    CGuardedPlace& operator++()
    {
        ++m_place;
        return *this;
    }
    CGuardedPlace operator++(int)
    {
        const CGuardedPlace before = *this;
        ++m_place;
        return before;
    }
    CGuardedPlace& operator--()
    {
        --m_place;
        return *this;
    }
    CGuardedPlace operator--(int)
    {
        const CGuardedPlace before = *this;
        --m_place;
        return before;
    }
    bool operator==(const CGuardedPlace& other) const { return m_place == other.m_place; }

private:
    const char* m_place = nullptr;
    std::uintptr_t m_stackStart = 0;
};

} // namespace

bool matches(std::string_view name, const std::regex& pattern, std::regex_constants::match_flag_type flags)
{
    const std::uintptr_t here = stackPlace();
    const CGuardedPlace begin(name.data(), here);
    const CGuardedPlace end(name.data() + name.size(), here);
#if defined(_GLIBCXX_RELEASE) && _GLIBCXX_RELEASE >= 12
    // The matcher behind std::regex_match tries one way after another and recurses once or more a character. The same
    // library has one that follows all ways at once, character by character, but takes it only for patterns that were
    // compiled with a flag of its own.
    std::match_results<CGuardedPlace> unused;
    return std::__detail::__regex_algo_impl(begin, end, unused, pattern, flags,
                                            std::__detail::_RegexExecutorPolicy::_S_alternate, true);
#else
    return std::regex_match(begin, end, pattern, flags);
#endif
}

} // namespace bson::detail
