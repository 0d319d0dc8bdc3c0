#include "zorvan/workflow/documentfile.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"

#include <cstdint>
#include <stdexcept>
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

/// Reads a stream, which tells how far it came.
bson::object readStepByStep(const std::filesystem::path& file, const Zorvan::SharedBytes& content)
{
    bson::memory_input_stream in(content.bytes.get(), content.size);
    const auto damaged = [&](const std::string& how) {
        const auto at = in.rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
        return Zorvan::CInputError(file, "damaged: " + how + " before byte " + std::to_string(std::streamoff{at}),
                                   sAdvice);
    };
    try {
        // A document that ends early gives what came before, so the stream tells whether all was read.
        bson::object document = bson::object::unfreeze(in);
        if (!in.good()) throw damaged("an element does not end");
        if (in.peek() != std::char_traits<char>::eof()) throw damaged("the document ends");
        return document;
    } catch (const std::invalid_argument&) {
        throw damaged("an element has an unknown type, or nests too deeply,");
    }
}

} // namespace

bson::object ReadDocumentFile(const std::filesystem::path& file)
{
    const Zorvan::SharedBytes content = Zorvan::ReadFileShared(file);
    checkFrame(file, content);
    try {
        bson::object document = bson::object::unfreeze(content.bytes, content.size);
        if (document.size() == content.size) return document;
    } catch (const std::invalid_argument&) {
        // Told below, with the place.
    }
    return readStepByStep(file, content);
}

void WriteDocumentFile(const std::filesystem::path& file, const bson::object& document)
{
    const auto [bytes, size] = document.freeze();
    Zorvan::WriteFileAtomically(file, std::string_view(reinterpret_cast<const char*>(bytes.get()), size));
}

} // namespace prereg
