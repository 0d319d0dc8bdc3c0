// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What is read is written in a form that reads the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Zorvan::PosesFile poses;
    try {
        poses = Zorvan::ReadPosesText({reinterpret_cast<const char*>(data), size}, "poses.json");
    } catch (const Zorvan::CInputError& error) {
        Law(std::string_view(error.what()).starts_with("poses.json: "), "an error names the file");
        return 0;
    }
    const std::string text = Zorvan::WritePosesText(poses);
    Law(Zorvan::WritePosesText(Zorvan::ReadPosesText(text, "again.json")) == text, "poses read back the same");
    return 0;
}
