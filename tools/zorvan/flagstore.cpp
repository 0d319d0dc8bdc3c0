#include "flagstore.h"

#include "inputerror.h"
#include "settinglimits.h"
#include "settingsfile.h"

#include "zorvan/runtime/csharedmemory.h"

#include <cstdint>
#include <exception>
#include <stdexcept>

namespace tools {

namespace {

constexpr std::uint64_t uiCapacity = 65536; // bytes; all settings take some 1200

} // namespace

bool IsStoreHeld(const std::string& store)
{
    return static_cast<bool>(Zorvan::CSharedMemory::Open(bson::convert(store), uiCapacity));
}

Zorvan::CSharedFlags OpenStore(const std::string& store)
{
    Zorvan::CSharedFlags flags(bson::convert(store), uiCapacity);
    if (!flags)
        throw CInputError("the flag store \"" + store + "\" cannot be opened; give --store a name of 1 to 200 bytes, " +
                          "and check that shared memory is there");
    return flags;
}

bson::object ReadStoredSettings(const std::string& store)
{
    if (store.empty() || !IsStoreHeld(store)) return {};
    try {
        bson::object settings = OpenStore(store).Get(sSettingsFlag).children();
        const std::string why = WhatIsWrongWith(WithSettings({}, settings)); // throws for values that are no settings
        if (!why.empty()) throw std::range_error(why);
        return settings;
    } catch (const CInputError&) {
        throw;
    } catch (const std::exception& error) {
        throw CInputError(std::string(sSettingsFlag) + " in the flag store " + store + ": " + error.what() +
                          "; set it anew with zorvan flags set, or give --store another name");
    }
}

} // namespace tools
