// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/export.h"

#include <functional>
#include <memory>

namespace prereg {

/// A search for the pose of a floating point set in the frame of a fixed one, without a start pose. Results queue up,
/// best first. Poses map floating into fixed coordinates (mm).
class ZORVAN_API IPreRegistration
{
public:
    virtual ~IPreRegistration();

    /// Searches. @param abort  asked now and then on the calling thread, true ends the search; may be empty
    /// @return whether there are results
    virtual bool Compute(std::function<bool()> abort) = 0;
    /// The same, and reports how far it is where the search can tell.
    virtual bool Compute(const Zorvan::Hooks& hooks);
    [[nodiscard]] virtual bool HasMoreResults() const = 0;
    /// The best result; a default one when there is none.
    [[nodiscard]] virtual ICPResult PeekBestResult() const = 0;
    /// The same, and takes it out of the queue.
    virtual ICPResult GetNextResult() = 0;
    /// Tries a pose that comes from elsewhere; a good one joins the queue.
    virtual ICPResult InjectTrafo(CTrafo trafo) = 0;
    [[nodiscard]] virtual const CFPFHPointSet& GetFixPointSet() const = 0;
    [[nodiscard]] virtual const CFPFHPointSet& GetFltPointSet() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const CPointSet> GetFixPointSetPtr() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const CPointSet> GetFltPointSetPtr() const = 0;

protected:
    IPreRegistration() = default;
    IPreRegistration(const IPreRegistration&) = default;
    IPreRegistration(IPreRegistration&&) = default;
    IPreRegistration& operator=(const IPreRegistration&) = default;
    IPreRegistration& operator=(IPreRegistration&&) = default;
};

} // namespace prereg
