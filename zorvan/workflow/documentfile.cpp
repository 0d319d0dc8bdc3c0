// SPDX-License-Identifier: MIT
#include "zorvan/workflow/documentfile.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace prereg {

namespace {

constexpr const char* sAdvice = "save or copy it again";

/// Four bytes of length (little-endian), the elements that it counts, one zero byte.
void checkFrame(const std::filesystem::path& file, const Zorvan::SharedBytes& content)
{
    constexpr std::uint64_t uiFrame = 5;
    if (content.size < uiFrame) throw Zorvan::CInputError(file, "too short for a saved document", sAdvice);
    std::uint64_t length = uiFrame;
    for (unsigned i = 0; i < 4; ++i) length += std::uint64_t{content.bytes[i]} << (8 * i);
    const std::string sizes = "its length field promises " + std::to_string(length) + " bytes, the file holds " +
                              std::to_string(content.size);
    if (length > content.size) throw Zorvan::CInputError(file, "truncated, or no saved document: " + sizes, sAdvice);
    if (length < content.size) throw Zorvan::CInputError(file, "damaged, or no saved document: " + sizes, sAdvice);
}

/// What is wrong inside the frame; nothing when the document was read as a whole.
const char* faultOf(const bson::unfreeze_end& end, std::uint64_t size)
{
    switch (end.reason) {
    case bson::unfreeze_end::eCut:
        return "an element does not end";
    case bson::unfreeze_end::eUnknownType:
    case bson::unfreeze_end::eTooDeep:
        return "an element has an unknown type, or nests too deeply,";
    case bson::unfreeze_end::eWhole:
        return end.position < size ? "the document ends" : nullptr;
    }
    return nullptr;
}

} // namespace

bson::object ReadDocumentFile(const std::filesystem::path& file)
{
    const Zorvan::SharedBytes content = Zorvan::ReadFileShared(file);
    checkFrame(file, content);
    bson::unfreeze_end end;
    bson::object document = bson::object::unfreeze(content.bytes, content.size, end);
    if (const char* const fault = faultOf(end, content.size))
        throw Zorvan::CInputError(
            file, "damaged: " + std::string(fault) + " before byte " + std::to_string(end.position), sAdvice);
    return document;
}

void WriteDocumentFile(const std::filesystem::path& file, const bson::object& document)
{
    WriteDocumentFile(file, document, Zorvan::Hooks::None());
}

bool WriteDocumentFile(const std::filesystem::path& file, const bson::object& document, const Zorvan::Hooks& hooks)
{
    const auto write = [&](std::ostream& out) { document.freeze(out); };
    return Zorvan::WriteFileAtomically(file, document.size(), write, hooks);
}

} // namespace prereg
