// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/workflow/settingsfile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Settings that are taken are written in a form that reads the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    bson::object settings;
    try {
        settings = prereg::ReadSettingsText(std::string(data, data + size), "input");
    } catch (const Zorvan::CInputError& error) {
        Law(std::string_view(error.what()).starts_with("input: "), "an error names the source");
        return 0;
    }
    const prereg::ConfigurationFPFH defaults;
    const std::string text = prereg::WriteSettingsText(prereg::WithSettings(defaults, settings), "read");
    const auto again = prereg::WithSettings(defaults, prereg::ReadSettingsText(text, "again"));
    Law(prereg::WriteSettingsText(again, "read") == text, "settings read back the same");
    return 0;
}
