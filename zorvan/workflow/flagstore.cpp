// SPDX-License-Identifier: MIT
#include "zorvan/workflow/flagstore.h"

#include "zorvan/runtime/csharedmemory.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/documenttext.h"
#include "zorvan/workflow/settingsfile.h"

#include <cstdint>
#include <exception>
#include <stdexcept>

namespace prereg {

namespace {

constexpr std::uint64_t uiCapacity = 65536; // bytes; all settings take some 1200

} // namespace

bool IsStoreHeld(const std::string& store)
{
    return static_cast<bool>(Zorvan::CSharedMemory::Open(bson::convert(store), uiCapacity));
}

Zorvan::CSharedFlags OpenStore(const std::string& store, const std::function<bool()>& isAborted)
{
    Zorvan::CSharedFlags flags(bson::convert(store), uiCapacity, isAborted);
    if (!flags)
        throw Zorvan::CInputError("the flag store \"" + store +
                                  "\" cannot be opened; give --store a name of 1 to 200 letters " +
                                  "a-z (others take more room), and check that there is shared memory to write to");
    // Reading takes the time and memory of the whole block.
    const std::uint64_t size = Zorvan::CSharedMemory::Open(bson::convert(store), uiCapacity).MappedSize();
    if (size > uiCapacity)
        throw Zorvan::CInputError("the flag store \"" + store + "\" has " + std::to_string(size) +
                                  " bytes, more than the " + std::to_string(uiCapacity) +
                                  " of ours: another program made it; give --store another name");
    return flags;
}

bson::object ReadStoredSettings(const std::string& store)
{
    if (store.empty() || !IsStoreHeld(store)) return {};
    try {
        bson::object settings = OpenStore(store).Get(sSettingsFlag).children();
        // WithSettings throws for values that are no settings.
        const std::string why = WhatIsWrongWithFields(WithSettings({}, settings));
        if (!why.empty()) throw std::range_error(why);
        return settings;
    } catch (const Zorvan::CInputError&) {
        throw;
    } catch (const std::exception& error) {
        throw Zorvan::CInputError(std::string(sSettingsFlag) + " in the flag store " + store + ": " + error.what() +
                                  "; set it anew with zorvan flags set, or give --store another name");
    }
}

bson::element ReadFlag(const std::string& name, const std::string& value)
{
    if (name == sSettingsFlag) return {name, ReadSettingsText(value, "VALUE")};
    return ReadValueText(value, name);
}

std::string FlagText(const bson::element& flag)
{
    if (flag.type() == bson::element::eDouble) return Zorvan::ToExactText(flag.as_double());
    if (flag.type() == bson::element::eObject) return ToPrintable(flag.as_object());
    if (flag.type() == bson::element::eString) return ToPrintable(flag.as_string());
    return ToPrintable(flag.dump().substr(flag.name_string().size() + std::string("\"\" : ").size()));
}

} // namespace prereg
