// SPDX-License-Identifier: MIT
#include "commands.h"

#include "zorvan/scans/showntext.h"

#include "zorvan/platform/cpufeatures.h"
#include "zorvan/util/version.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <system_error>

namespace {

int refuse(const std::string& why)
{
    std::cerr << Zorvan::ToMessage("zorvan: " + why) << '\n';
    return tools::WrongInput;
}

// A result that is being written must not get the number of a closed standard stream, or messages would go into it.
// What stands in can be read only, so that writing to it fails as to a closed one.
void occupyStandardStreams()
{
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDONLY);
    if (descriptor >= 0) ::close(descriptor);
}

/// Freed memory stays for the next step: fetching zeroed pages anew took a fifth of the time of an alignment. And the
/// first of it comes in large pages: fetching some seven thousand small ones took a tenth.
void prepareHeap()
{
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 32 << 20); // the most that is taken
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_TOP_PAD, 16 << 20);
    // A block that nothing lies in yet; freed, it stays in the heap. Large pages are a wish: a system without them
    // refuses, and nothing is lost.
    constexpr std::size_t largePage = std::size_t{2} << 20;
    constexpr std::size_t blockSize = std::size_t{31} << 20;
    void* const block = std::malloc(blockSize);
    void* begin = block;
    std::size_t size = blockSize;
    if (block != nullptr && std::align(largePage, largePage, begin, size) != nullptr)
        static_cast<void>(::madvise(begin, size / largePage * largePage, MADV_HUGEPAGE));
    std::free(block);
#endif
}

/// @return the exit code, that of a failure when what was printed has not arrived
int withOutput(int exitCode)
{
    errno = 0;
    std::cout.flush();
    if (std::cout.good()) return exitCode;
    const std::string why = errno != 0 ? ": " + std::generic_category().message(errno) : "";
    return refuse("standard output cannot be written" + why + "; check where it goes");
}

/// With the vector unit in use, which the environment can choose (ZORVAN_SIMD).
std::string version() { return std::string(Zorvan::Version()) + " (" + Zorvan::NameOf(Zorvan::GetSimd()) + ")"; }

int run(int argc, char** argv)
{
    tools::CCommandLine program("zorvan", "Registers 3D surface scans.");
    program.SetVersion(version);
    tools::AddAlign(program.Root());
    tools::AddJudge(program.Root());
    tools::AddRegister(program.Root());
    tools::AddApply(program.Root());
    tools::AddFeatures(program.Root());
    tools::AddFit(program.Root());
    tools::AddSimulate(program.Root());
    tools::AddEvaluate(program.Root());
    tools::AddSession(program.Root());
    tools::AddSettings(program.Root());
    tools::AddFlags(program.Root());
    tools::AddInfo(program.Root());
    tools::AddDump(program.Root());
    tools::AddCurve(program.Root());
    tools::AddOutline(program.Root());
    tools::AddConvert(program.Root());
    tools::AddDevices(program.Root());
    return program.Run(argc, argv);
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardStreams();
    prepareHeap();
    std::signal(SIGPIPE, SIG_IGN); // a reader of messages that goes away does not end the work
    try {
        return withOutput(run(argc, argv));
    } catch (const std::bad_alloc&) {
        return refuse("not enough memory for this input; give a smaller one");
    } catch (const std::exception& error) {
        return refuse(error.what());
    }
}
