// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bsonstream.h"
#include "zorvan/platform/export.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <list>
#include <memory>
#include <regex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

/// The universal value of the system: settings, results and whole registration states travel as documents.
///
/// The wire form has the layout of BSON 1.1 with our own type codes and rules, and is not exchangeable with it: the
/// length of a document is the sum of its element sizes (its own four bytes and the closing NUL are not counted), an
/// embedded document has code 4, there are no arrays, and a single element has a frozen form of its own. All numbers
/// are little-endian.
namespace bson {

namespace detail {
struct CElementBuilder;
}

class object;

/// How many documents may lie inside one another: none deeper is made, so what is written can be read again. Real
/// documents nest less than ten deep. Nothing here recurses over the nesting, and neither should who walks a document
/// from outside.
inline constexpr unsigned int uiMaxNesting = 10000;

/// Where the reading of a frozen document ended, and why.
struct unfreeze_end
{
    enum Reason
    {
        eWhole,       ///< at its closing byte
        eCut,         ///< the bytes end before the document does
        eUnknownType, ///< behind the name of an element whose type code does not exist
        eTooDeep      ///< behind the name of a document that would be nested deeper than `uiMaxNesting`
    };

    Reason reason = eWhole;
    std::uint64_t position = 0; ///< bytes read until then
};

/// UTF-16 in wide text to UTF-8, and back. Both throw std::range_error("bad conversion") for invalid text.
[[nodiscard]] ZORVAN_API std::string convert(const std::wstring& text);
[[nodiscard]] ZORVAN_API std::wstring convert(const std::string& text);

/// One named, typed value, kept in wire form in a single buffer: freezing it is a copy, reading it a cast.
///
///     const bson::element radius("dRadius", 2.5);
///     radius.as_double();           // 2.5
///     radius.as_float();            // throws std::bad_cast: readers never widen or narrow
///     const bson::element nothing;  // the empty element: false, type() 255; the result of every failed look-up
///
/// Names end at their first NUL character. Values of 4 GiB and more throw std::length_error, since their length does
/// not fit the format. Elements are values: no operation on one changes another, so copies share their bytes, and the
/// parts of a large document lie inside it. Concurrent reads are safe.
class ZORVAN_API element
{
public:
    /// The first byte of the wire form. An empty element has `eEmpty`, which is never stored.
    enum Type : unsigned char
    {
        eDouble = 1,
        eString = 2,
        eObject = 4,
        eBinary = 5,
        eBoolean = 8,
        eDateTime = 9, ///< signed milliseconds since 1970-01-01 UTC
        eNull = 10,
        eRegex = 11,
        eInt32 = 16,
        eUInt64 = 17,
        eInt64 = 18,
        eFloat = 128,
        eUInt32 = 129,
        eInt16 = 130,
        eUInt16 = 131,
        eUInt8 = 132,
        eInt8 = 133,
        eEmpty = 255
    };

    /// The byte behind the length of a binary value. Other values are kept as they come.
    enum BinaryType : unsigned char
    {
        eGeneric = 0,
        eUUID = 4 ///< 16 bytes: 32, 16, 16 and 16 bits little-endian, then six single bytes
    };

    element() noexcept = default;
    element(const element& other) noexcept = default;
    element(element&& other) noexcept;
    element& operator=(const element& other) noexcept = default;
    element& operator=(element&& other) noexcept;
    ~element() = default;

    element(const std::string& name);
    element(const std::string& name, const std::string& value);
    element(const std::string& name, const char* value);
    element(const std::string& name, const std::wstring& value);
    element(const std::string& name, const wchar_t* value);
    element(const std::string& name, const object& value);
    element(const std::string& name, signed char value);
    element(const std::string& name, unsigned char value);
    element(const std::string& name, short value);
    element(const std::string& name, unsigned short value);
    element(const std::string& name, int value);
    element(const std::string& name, unsigned int value);
    element(const std::string& name, long value); ///< 64 bits, also where `long` is shorter
    element(const std::string& name, unsigned long value);
    element(const std::string& name, long long value);
    element(const std::string& name, unsigned long long value);
    element(const std::string& name, float value);
    element(const std::string& name, double value);
    element(const std::string& name, bool value);
    element(const std::string& name, const void* data, std::uint64_t size);
    element(const std::string& name, std::chrono::milliseconds value);

    /// `data` may be null only if `size` is 0; otherwise throws std::invalid_argument.
    [[nodiscard]] static element make_binary(const std::string& name, const void* data, std::uint64_t size,
                                             BinaryType type);
    [[nodiscard]] static element make_boolean(const std::string& name, bool value);
    /// The smallest duration means "now" and stores the system clock.
    [[nodiscard]] static element make_datetime(const std::string& name, std::chrono::milliseconds value);
    [[nodiscard]] static element make_double(const std::string& name, double value);
    [[nodiscard]] static element make_float(const std::string& name, float value);
    [[nodiscard]] static element make_int8(const std::string& name, std::int8_t value);
    [[nodiscard]] static element make_int16(const std::string& name, std::int16_t value);
    [[nodiscard]] static element make_int32(const std::string& name, std::int32_t value);
    [[nodiscard]] static element make_int64(const std::string& name, std::int64_t value);
    [[nodiscard]] static element make_null(const std::string& name);
    /// Throws std::length_error if documents would nest deeper than `uiMaxNesting`.
    [[nodiscard]] static element make_object(const std::string& name, const object& value);
    /// An object of what `make` gives for 0 to `count` - 1. Each is made twice, the first time for its size, so that no
    /// more than one of them is in memory beside the result. Throws as the other does.
    [[nodiscard]] static element make_object(const std::string& name, std::uint64_t count,
                                             const std::function<element(std::uint64_t)>& make);
    /// Pattern and options end at their first NUL character.
    [[nodiscard]] static element make_regex(const std::string& name, const std::string& pattern,
                                            const std::string& options);
    [[nodiscard]] static element make_string(const std::string& name, const std::string& value);
    [[nodiscard]] static element make_string(const std::string& name, const std::wstring& value);
    [[nodiscard]] static element make_uint8(const std::string& name, std::uint8_t value);
    [[nodiscard]] static element make_uint16(const std::string& name, std::uint16_t value);
    [[nodiscard]] static element make_uint32(const std::string& name, std::uint32_t value);
    [[nodiscard]] static element make_uint64(const std::string& name, std::uint64_t value);
    /// @param bytes  16 bytes in the order documented at `eUUID`
    [[nodiscard]] static element make_uuid(const std::string& name, const void* bytes);
    /// @param text  "01234567-89ab-cdef-0123-456789abcdef" in either case, with or without braces
    /// @return      the identifier, or the empty element if the text is not of this form
    [[nodiscard]] static element make_uuid_from_string(const std::string& name, const std::string& text);

    [[nodiscard]] Type type() const noexcept { return m_buffer ? static_cast<Type>(m_buffer[0]) : eEmpty; }
    /// The name as it lies in the element; "" for the empty element.
    [[nodiscard]] const char* name() const noexcept;
    [[nodiscard]] std::string name_string() const { return name(); }
    [[nodiscard]] std::wstring name_wstring() const { return convert(name_string()); }
    [[nodiscard]] const unsigned char* raw() const noexcept { return m_buffer.get(); }
    [[nodiscard]] const unsigned char* raw_value() const noexcept;
    [[nodiscard]] std::uint64_t size() const noexcept { return m_size; }
    /// Counts the NUL behind the name.
    [[nodiscard]] std::uint64_t size_of_name() const noexcept { return m_buffer ? m_size - m_valueSize - 1 : 0; }
    [[nodiscard]] std::uint64_t size_of_value() const noexcept { return m_valueSize; }
    [[nodiscard]] explicit operator bool() const noexcept { return m_buffer != nullptr; }

    /// Every reader demands exactly its own type and throws std::bad_cast("bad cast") for another one and for the empty
    /// element. Pointers and streams stay valid as long as the element is neither changed nor destroyed.
    [[nodiscard]] double as_double() const;
    [[nodiscard]] float as_float() const;
    [[nodiscard]] std::int8_t as_int8() const;
    [[nodiscard]] std::int16_t as_int16() const;
    [[nodiscard]] std::int32_t as_int32() const;
    [[nodiscard]] std::int64_t as_int64() const;
    [[nodiscard]] std::uint8_t as_uint8() const;
    [[nodiscard]] std::uint16_t as_uint16() const;
    [[nodiscard]] std::uint32_t as_uint32() const;
    [[nodiscard]] std::uint64_t as_uint64() const;
    [[nodiscard]] bool as_boolean() const;
    [[nodiscard]] std::chrono::milliseconds as_datetime() const;
    [[nodiscard]] std::string as_string() const;
    [[nodiscard]] std::wstring as_wstring() const { return convert(as_string()); }
    /// Payload, its length and its type; nothing is copied.
    [[nodiscard]] std::tuple<const unsigned char*, std::uint64_t, BinaryType> as_binary() const;
    [[nodiscard]] memory_input_stream as_binary_istream() const;
    /// Takes the value apart on every call, one level of it; large parts are not copied.
    [[nodiscard]] object as_object() const;
    /// Pattern and options, both inside the element.
    [[nodiscard]] std::pair<const char*, const char*> as_regex() const;
    /// The 16 bytes of an identifier. Throws as above also when the binary is of another type or shorter.
    [[nodiscard]] const unsigned char* as_uuid() const;
    /// as_object() of an object, otherwise an empty object.
    [[nodiscard]] object children() const;

    /// Equal type, name and value, byte by byte; so NaN equals itself, and 0.0 differs from -0.0.
    [[nodiscard]] bool operator==(const element& other) const noexcept;
    [[nodiscard]] bool operator!=(const element& other) const noexcept { return !(*this == other); }
    [[nodiscard]] object operator+(const element& other) const;

    /// The wire form and its length; null and 0 for the empty element.
    [[nodiscard]] std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t> freeze() const;
    std::ostream& freeze(std::ostream& out) const;

    /// Reads one element. Input that ends early gives the empty element; an unknown type code, or documents nested
    /// deeper than `uiMaxNesting`, throw std::invalid_argument("parse error"). Memory is taken for bytes that are
    /// there, whatever a length field says. A nested document is normalised: its length is written anew.
    ///
    /// A regular expression that was read is two bytes larger than the same one made by make_regex, and is written so;
    /// stored sizes rely on it. The two bytes hold 0xFF, which no element begins with, and are skipped when read again.
    [[nodiscard]] static element unfreeze(std::istream& in);
    [[nodiscard]] static element unfreeze(const unsigned char* data, std::uint64_t size);

    /// Gives the value of `input` the type of this element, by the table that tests/documents/bsoncoercion_test.cpp
    /// shows.
    /// @param errors  takes every input element that could not be used; may be null
    /// @return        the converted element; a null element of that name if the types do not convert; the empty element
    ///                if the names differ, or if this is an object and `input` is none
    /// Text that is no number throws what std::stoi and its kin throw ("invalid stoi argument", "stoi argument out of
    /// range"), a uint16 for a double or float throws std::bad_cast. A number too large for an integer keeps its low
    /// bits; NaN and infinity give 0 there.
    [[nodiscard]] element coerce(const element& input, object* errors) const;

    /// The look-ups of `object` in the document that this element holds; the empty element if it holds none.
    [[nodiscard]] element child(const std::string& name) const;
    [[nodiscard]] element child(const std::regex& pattern) const;

    /// @param path  names from this element down, "config/icp/dMaxRMSE"; the first must be this element's own
    [[nodiscard]] element query(const std::string& path) const;
    [[nodiscard]] element query(std::list<std::string> path) const;

    /// As `object::to_json` and `object::dump`, for `"name" : value`; "" for the empty element.
    [[nodiscard]] std::string to_json(unsigned int indent = 0, unsigned int level = 1) const;
    [[nodiscard]] std::string dump(unsigned int indent = 0, unsigned int level = 1) const;

private:
    friend struct detail::CElementBuilder;

    element(Type type, const std::string& name, std::uint64_t valueSize);

    template <typename T>
    [[nodiscard]] T read(Type expected) const;
    void demand(Type expected) const;

    std::shared_ptr<const unsigned char[]> m_buffer; ///< type byte, name, NUL, value; null in the empty element
    std::uint64_t m_size = 0;
    std::uint64_t m_valueSize = 0;
    bool m_isAsRead = true; ///< reading the bytes gives the same bytes: not with a regular expression of make_regex
};

/// An ordered list of elements. Order of insertion is kept, and names need not be unique.
///
///     const bson::object settings{{"uiCount", 3u}, {"sName", "probe"}, {"dLimit", 0.5}};
///     for (const bson::element& e : settings) use(e.name(), e.to_json());
///     const auto [bytes, size] = settings.freeze();
///     const bson::object again = bson::object::unfreeze(bytes.get(), size);
///
/// Operations that change give a new object and leave the receiver, apart from += and assignment.
class ZORVAN_API object
{
public:
    object() = default;
    object(const object&) = default;
    object(object&&) noexcept = default;
    object(const element& e);
    object(element&& e);
    object(const std::vector<element>& elements);
    object(std::vector<element>&& elements) noexcept;
    object(std::initializer_list<element> elements);
    ~object() = default;

    object& operator=(const object&) = default;
    object& operator=(object&&) noexcept = default;
    /// Replaces the whole content by one element.
    object& operator=(const element& e);
    object& operator=(element&& e);

    /// Both null if there is no element.
    [[nodiscard]] const element* begin() const noexcept;
    [[nodiscard]] const element* end() const noexcept;
    [[nodiscard]] std::size_t num_elements() const noexcept { return m_elements.size(); }
    /// Length of the frozen form.
    [[nodiscard]] std::uint64_t size() const noexcept;
    [[nodiscard]] explicit operator bool() const noexcept { return !m_elements.empty(); }

    [[nodiscard]] object operator+(const element& e) const;
    [[nodiscard]] object operator+(element&& e) const;
    [[nodiscard]] object operator+(const object& other) const;
    [[nodiscard]] object operator+(object&& other) const;
    object& operator+=(const element& e);
    object& operator+=(element&& e);

    /// Without all elements of that name.
    [[nodiscard]] object erase(const std::string& name) const;

    /// Takes over the elements of `other` one by one: an unknown name is appended; objects are merged key by key; any
    /// other value replaces the first of its name and is converted to the type found there, as `element::coerce` does
    /// and with its exceptions. Settings keep their types however the new values were typed.
    [[nodiscard]] object update(const object& other) const;
    /// Puts `e` in place of every element of its name, or at the end if there is none. Its type replaces the old one.
    [[nodiscard]] object update(const element& e) const;

    /// Throws std::length_error if the elements together reach 4 GiB.
    [[nodiscard]] std::pair<std::unique_ptr<unsigned char[]>, std::uint64_t> freeze() const;
    std::ostream& freeze(std::ostream& out) const;

    /// Reads one document and leaves the stream behind it. One that is cut short gives the elements before the cut and
    /// an empty element at the end. Throws as `element::unfreeze`.
    [[nodiscard]] static object unfreeze(std::istream& in);
    /// Trusts the length at `data`: reads up to that length and five bytes more. For bytes from outside use the next
    /// one.
    [[nodiscard]] static object unfreeze(const unsigned char* data);
    /// Reads at most `size` bytes.
    [[nodiscard]] static object unfreeze(const unsigned char* data, std::uint64_t size);
    /// The same without copying large values: elements lie in `bytes` and keep them alive. Nobody may write to them any
    /// more.
    [[nodiscard]] static object unfreeze(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size);
    /// The same for who wants to know what is wrong with the bytes, and where. Gives an empty document where the others
    /// throw.
    [[nodiscard]] static object unfreeze(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size,
                                         unfreeze_end& end);

    /// Converts each element of `input` by the first of its name in this object. The result has the order of the input;
    /// no defaults are filled in. Unknown and unusable elements go to `errors`, in the same nesting.
    [[nodiscard]] object coerce(const object& input, object* errors) const;

    /// The first element of that name here, else the first found below, depth first.
    [[nodiscard]] element child(const std::string& name) const;
    /// The same with a match of the whole name, `flags` holding on this level only. A pattern with back-references
    /// throws std::regex_error(error_stack) at a name of many hundred characters that it cannot decide; other patterns
    /// take names of any length.
    [[nodiscard]] element
    child(const std::regex& pattern,
          std::regex_constants::match_flag_type flags = std::regex_constants::match_default) const;

    /// @param path  names from an element of this object down; empty segments do not count: "a//b" and "/a/b" are "a/b"
    /// @return      the first element found, where elements of equal name are tried in order; or the empty element
    [[nodiscard]] element query(const std::string& path) const;
    [[nodiscard]] element query(std::list<std::string> path) const;

    /// JSON-like text. Nothing is escaped, numbers have 6 significant digits, 8-bit integers are written as the one
    /// character, binaries in Base64 between backticks (an empty one throws std::bad_alloc).
    /// @param indent  blanks a level, of which a document nested very deep takes many; 0 writes one line
    /// @param level   depth of this object: 1 for a whole document; 0 leaves the last closing brace out
    [[nodiscard]] std::string to_json(unsigned int indent = 0, unsigned int level = 1) const;
    /// The same for people: identifiers as such, binaries up to 16 bytes as bytes, larger ones by their length.
    [[nodiscard]] std::string dump(unsigned int indent = 0, unsigned int level = 1) const;

    /// Reads settings written by hand: nested objects whose keys and strings are quoted identifiers (letters, digits,
    /// underscore), numbers, true, false, null. Whole numbers become int32, others double; a comma after the last
    /// member is accepted, `#` starts a comment. There are no arrays, escapes or other strings, so that it does not
    /// read all that to_json writes. Throws the message of an error as a std::string, also for objects nested deeper
    /// than `uiMaxNesting`; std::range_error for bad UTF-8.
    [[nodiscard]] static object from_json(const std::string& utf8Text);
    [[nodiscard]] static object from_json(const std::wstring& text);

private:
    friend struct detail::CElementBuilder;

    std::vector<element> m_elements;
};

} // namespace bson
