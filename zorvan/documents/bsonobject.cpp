// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwire.h"

#include <algorithm>
#include <ostream>
#include <stack>
#include <string_view>
#include <unordered_map>

namespace bson {

object::object(const element& e) : m_elements{e} {}

object::object(element&& e) { m_elements.push_back(std::move(e)); }

object::object(const std::vector<element>& elements) : m_elements(elements) {}

object::object(std::vector<element>&& elements) noexcept : m_elements(std::move(elements)) {}

object::object(std::initializer_list<element> elements) : m_elements(elements) {}

object& object::operator=(const element& e)
{
    object replacement(e);
    return *this = std::move(replacement);
}

object& object::operator=(element&& e)
{
    // By way of a new object, since `e` may be an element of this one.
    object replacement(std::move(e));
    return *this = std::move(replacement);
}

const element* object::begin() const noexcept { return m_elements.empty() ? nullptr : m_elements.data(); }

const element* object::end() const noexcept
{
    return m_elements.empty() ? nullptr : m_elements.data() + m_elements.size();
}

std::uint64_t object::size() const noexcept
{
    std::uint64_t sum = detail::uiFrameBytes;
    for (const element& e : m_elements) sum += e.size();
    return sum;
}

object object::operator+(const element& e) const
{
    element copy(e);
    return *this + std::move(copy);
}

object object::operator+(element&& e) const
{
    std::vector<element> elements;
    elements.reserve(m_elements.size() + 1);
    elements = m_elements;
    elements.push_back(std::move(e));
    return elements;
}

object object::operator+(const object& other) const
{
    object copy(other);
    return *this + std::move(copy);
}

object object::operator+(object&& other) const
{
    object result(*this);
    result.m_elements.insert(result.m_elements.end(), std::make_move_iterator(other.m_elements.begin()),
                             std::make_move_iterator(other.m_elements.end()));
    return result;
}

object& object::operator+=(const element& e)
{
    m_elements.push_back(e);
    return *this;
}

object& object::operator+=(element&& e)
{
    m_elements.push_back(std::move(e));
    return *this;
}

object object::erase(const std::string& name) const
{
    object result;
    std::copy_if(m_elements.begin(), m_elements.end(), std::back_inserter(result.m_elements),
                 [&](const element& e) { return name != e.name(); });
    return result;
}

namespace {

element merged(const element& old, const element& e)
{
    if (old.type() == e.type()) return e;
    return old.coerce(e, nullptr);
}

/// Updates a document with all that is inside it; those that are not done stand in a container and not on the stack.
class CUpdate
{
public:
    object run(const object& old, const object& other)
    {
        enter(old, other);
        while (true) {
            Level& level = m_levels.top();
            if (level.next != level.other.end()) {
                step(level, *level.next++);
                continue;
            }
            object done(std::move(level.elements));
            m_levels.pop();
            if (m_levels.empty()) return done;
            element& slot = m_levels.top().elements[m_levels.top().slot];
            slot = element::make_object(slot.name(), done);
        }
    }

private:
    struct Level
    {
        object old;
        object other;
        const element* next = nullptr;
        std::vector<element> elements; ///< what becomes of `old`
        /// The names lie in the two operands, which stay as they are.
        std::unordered_map<std::string_view, std::size_t> firstOfName;
        std::size_t slot = 0; ///< of the element whose document is merged in the next level
    };

    void enter(const object& old, const object& other)
    {
        Level& level = m_levels.emplace();
        level.old = old;
        level.other = other;
        level.next = level.other.begin();
        level.elements.assign(level.old.begin(), level.old.end());
        // emplace keeps the first of equal names.
        for (std::size_t i = 0; i < level.elements.size(); ++i) level.firstOfName.emplace(level.elements[i].name(), i);
    }

    void step(Level& level, const element& e)
    {
        const auto [found, isNew] = level.firstOfName.emplace(e.name(), level.elements.size());
        if (isNew) return level.elements.push_back(e);
        level.slot = found->second;
        element& slot = level.elements[level.slot];
        if (slot.type() == element::eObject && e.type() == element::eObject)
            enter(slot.as_object(), e.as_object());
        else
            slot = merged(slot, e);
    }

    std::stack<Level> m_levels;
};

} // namespace

object object::update(const object& other) const { return CUpdate().run(*this, other); }

object object::update(const element& e) const
{
    object result(*this);
    bool found = false;
    for (element& old : result.m_elements) {
        if (std::string_view(old.name()) != e.name()) continue;
        old = e;
        found = true;
    }
    if (!found) result += e;
    return result;
}

std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t> object::freeze() const
{
    const std::uint64_t total = size();
    auto bytes = std::make_unique_for_overwrite<unsigned char[]>(total);
    detail::storeObject(bytes.get(), *this);
    return {std::move(bytes), total};
}

std::ostream& object::freeze(std::ostream& out) const
{
    const std::uint32_t length = detail::length32(size() - detail::uiFrameBytes);
    out.write(reinterpret_cast<const char*>(&length), sizeof(length));
    for (const element& e : m_elements) e.freeze(out);
    return out.put('\0');
}

namespace detail {

unsigned char* storeObject(unsigned char* to, const object& o)
{
    to = store(to, length32(o.size() - uiFrameBytes));
    for (const element& e : o) to = storeBytes(to, e.raw(), e.size());
    *to++ = 0;
    return to;
}

} // namespace detail

} // namespace bson
