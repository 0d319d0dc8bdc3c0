// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/persistence/bsonserialization.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <typeinfo>

namespace {

using bson::from_object;
using bson::object;
using bson::to_object;
using prereg::CFPFHPointSet;

bool equal(const object& a, const object& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

void checkSet(const object& document, std::size_t size)
{
    const auto set = from_object<CFPFHPointSet>(document);
    Law(12 * set.Size() <= size && 132 * set.SizeFeatures() <= size, "a set holds no more than its document");
    Law(set.GetNormals().size() == set.Size() && set.GetFeaturePoints().size() == set.SizeFeatures() &&
            set.GetFeatureNormals().size() == set.SizeFeatures(),
        "the arrays of a set fit each other");

    const object written = to_object(set);
    Law(equal(to_object(from_object<CFPFHPointSet>(written)), written), "a set that is written reads back the same");
}

} // namespace

/// A frozen document that is taken for a point set.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Sets that cannot be used are logged, here nearly all of them.
    Logging::SetLogSink([](const Logging::LogRecord&) {}, Logging::ELogLevel::Fatal);
    try {
        checkSet(object::unfreeze(data, size), size);
    } catch (const std::invalid_argument&) {
        // Not a document.
    } catch (const std::bad_cast&) {
        // An array that is no binary.
    }
    return 0;
}
