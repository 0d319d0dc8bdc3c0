// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/clusterregistration/clusterpersistence.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/runtime/cjobscheduler.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <string_view>
#include <typeinfo>

namespace {

using bson::element;
using bson::object;
using prereg::CClusterRegistration;
using prereg::CTrafo;

// One for all: a scheduler for each input would be threads above all.
const CClusterRegistration::Group& group()
{
    static Zorvan::CJobScheduler scheduler(1);
    static const CClusterRegistration::Group jobs = scheduler.CreateJobGroup({}, {});
    return jobs;
}

CTrafo readPose(const element& e)
{
    return e.type() == element::eNull ? CTrafo::Invalid() : bson::from_object<CTrafo>(e.as_object());
}

bool isSamePose(const CTrafo& a, const CTrafo& b)
{
    // Some ten roundings to single precision, of numbers up to 1, lie between two rotations.
    constexpr float tolerance = 1e-6F;
    if (!a || !b) return !a && !b;
    for (unsigned i = 0; i < 3; ++i) {
        for (unsigned j = 0; j < 3; ++j) {
            if (!(std::abs(a(i, j) - b(i, j)) <= tolerance)) return false;
        }
        if (a(i, 3) != b(i, 3)) return false;
    }
    return true;
}

bool isSame(const element& a, const element& b)
{
    const std::string_view name = a.name();
    if (name != b.name()) return false;
    if (name == "events") return true;
    if (name == "trafo" || name == "pre_trafo") return isSamePose(readPose(a), readPose(b));
    if (a.type() != element::eObject || b.type() != element::eObject) return a == b;
    const object ours = a.as_object();
    const object theirs = b.as_object();
    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), isSame);
}

void checkClusters(const CClusterRegistration& registration)
{
    std::set<UniversalUniqueID> seen;
    for (const UniversalUniqueID& id : registration.GetClusterIDs()) {
        const auto entities = registration.GetEntityIDs(id);
        Law(entities.size() == registration.Size(id) && entities.size() == registration.GetTrafos(id, false).size() &&
                entities.size() == registration.GetTrafos(id, true).size(),
            "all queries count the entities of a cluster alike");
        for (const UniversalUniqueID& entity : entities) {
            Law(seen.insert(entity).second, "an entity is in one cluster");
            Law(registration.GetClusterID(entity) == id, "an entity that is listed resolves to its cluster");
            Law(registration.GetPointSetAndTransform(entity).first != nullptr, "an entity has a surface");
        }
    }
}

/// Rotations that have not unit length come back with it, but what is no pose stays none.
bool hasPosesWhereTheOtherHas(const CClusterRegistration& a, const CClusterRegistration& b)
{
    const auto areBoth = [](const CTrafo& x, const CTrafo& y) { return static_cast<bool>(x) == static_cast<bool>(y); };
    for (const UniversalUniqueID& id : a.GetClusterIDs()) {
        if (!areBoth(a.GetClusterTrafo(id), b.GetClusterTrafo(id))) return false;
        const auto ours = a.GetTrafos(id, true);
        const auto theirs = b.GetTrafos(id, true);
        const auto isSameEntry = [&](const auto& x, const auto& y) {
            return x.first == y.first && areBoth(x.second, y.second);
        };
        if (!std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), isSameEntry)) return false;
    }
    return true;
}

void checkPrimary(const CClusterRegistration& registration, std::size_t size)
{
    const auto ids = registration.GetClusterIDs();
    const bool isThere = std::find(ids.begin(), ids.end(), registration.GetPrimaryClusterID()) != ids.end();
    try {
        const auto set = registration.GetPrimaryClusterPointSet();
        Law(isThere || ids.empty(), "a model that is not there has no surface");
        Law(12 * set.Size() <= size && 132 * set.SizeFeatures() <= size, "a model holds no more than its document");
    } catch (const std::runtime_error&) {
        Law(!isThere && !ids.empty(), "only a model that is not there has no surface");
    }
}

void checkSession(const object& document, std::size_t size)
{
    CClusterRegistration registration = CClusterRegistration::FromObject(document, group());
    checkClusters(registration);
    checkPrimary(registration, size);
    const std::string status = registration.GetStatusString(36);
    const bool abort = true;
    Law(registration.OptimizeRegistration(true, false, abort) == registration.GetClusterIDs() &&
            registration.GetStatusString(36) == status,
        "an aborted optimisation leaves everything as it was");

    const object written = registration.ToObject();
    const CClusterRegistration again = CClusterRegistration::FromObject(written, group());
    checkClusters(again);
    Law(again.GetStatusString(36) == status, "a registration that is written has the same clusters when it is read");
    Law(hasPosesWhereTheOtherHas(registration, again),
        "a pose that is written is one when it is read, and what is none is none");
    Law(isSame(element("", again.ToObject()), element("", written)),
        "what was read is written as it was, but for the journal");
}

} // namespace

/// A frozen document that is taken for a saved registration.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // What is damaged is logged, here nearly everything.
    Logging::SetLogSink([](const Logging::LogRecord&) {}, Logging::ELogLevel::Fatal);
    try {
        checkSession(object::unfreeze(data, size), size);
    } catch (const std::invalid_argument&) {
        // Not a document, or one that nests too deep.
    } catch (const std::bad_cast&) {
        // A part is missing or of another type.
    } catch (const std::out_of_range&) {
        // An entity without a surface.
    }
    group()->Wait();
    return 0;
}
