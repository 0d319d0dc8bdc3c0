// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/documents/bson.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using bson::element;
using bson::object;

std::string bytesOf(const object& o)
{
    const auto [data, size] = o.freeze();
    return {reinterpret_cast<const char*>(data.get()), size};
}

bool equal(const object& a, const object& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

object readShared(const std::uint8_t* data, std::size_t size, bson::unfreeze_end& end)
{
    auto bytes = std::make_unique<unsigned char[]>(size);
    std::copy_n(data, size, bytes.get());
    return object::unfreeze(std::shared_ptr<const unsigned char[]>(std::move(bytes)), size, end);
}

object withoutEmptyElements(const object& o)
{
    object result;
    for (const element& e : o) {
        if (e) result += e;
    }
    return result;
}

/// @return  what is inside
object checkElement(const element& e)
{
    const auto [data, size] = e.freeze();
    Law(size == e.size() && element::unfreeze(data.get(), size) == e, "a frozen element reads back equal");
    Law(e.size() == 1 + e.size_of_name() + e.size_of_value(), "the sizes of an element add up");
    Law(std::string(e.name()).size() + 1 == e.size_of_name(), "a name fills its room");
    object children = e.children();
    if (e.type() == element::eObject)
        Law(equal(object::unfreeze(e.raw_value(), e.size_of_value()), children), "a part is read as a whole is");
    return children;
}

/// With all that is inside, without recursion over what comes from outside.
void checkAll(const object& document)
{
    std::vector<object> open{document};
    while (!open.empty()) {
        const object next = std::move(open.back());
        open.pop_back();
        for (const element& e : next)
            if (object children = checkElement(e)) open.push_back(std::move(children));
    }
}

void checkText(const object& o)
{
    Law(!o.dump(2, 1).empty(), "every document can be dumped");
    try {
        Law(!o.to_json(0, 1).empty(), "every document can be written");
    } catch (const std::bad_alloc&) {
        // An empty binary has no Base64 form.
    }
}

} // namespace

/// Where the stream stands is where reading in place ended, and for the reason that the stream shows.
void checkReadersAgree(const std::uint8_t* data, std::size_t size)
{
    bson::unfreeze_end end;
    const object shared = readShared(data, size, end);
    std::istringstream stream(std::string(data, data + size));
    bool isReadable = true;
    try {
        Law(equal(object::unfreeze(stream), shared), "memory that is shared and stream give the same document");
    } catch (const std::invalid_argument&) {
        isReadable = false;
    }
    using bson::unfreeze_end;
    Law(isReadable == (end.reason == unfreeze_end::eWhole || end.reason == unfreeze_end::eCut), "both refuse it");
    Law(stream.good() == (end.reason != unfreeze_end::eCut), "both find it cut short");
    const auto place = stream.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    Law(static_cast<std::uint64_t>(std::streamoff{place}) == end.position, "both end at the same byte");
}

/// What is read is stable: freezing and reading again gives the same document, from memory and from a stream.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    checkReadersAgree(data, size);
    object read;
    try {
        read = object::unfreeze(data, size);
        static_cast<void>(element::unfreeze(data, size));
    } catch (const std::invalid_argument&) {
        return 0;
    }
    std::istringstream stream(std::string(data, data + size));
    Law(equal(object::unfreeze(stream), read), "memory and stream give the same document");
    const std::string frozen = bytesOf(read);
    Law(frozen.size() == read.size(), "size() tells the length of the frozen form");
    const object again = object::unfreeze(reinterpret_cast<const unsigned char*>(frozen.data()));
    Law(equal(again, withoutEmptyElements(read)), "a frozen document reads back equal");
    checkAll(again);
    checkText(read);
    return 0;
}
