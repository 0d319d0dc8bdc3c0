// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/// What the library asks of a compute device. `CGPGPUFactory` gives a service over OpenCL; a host that has one of its
/// own installs it there, and tests install one that fails. Every operation raises a std::exception when the device
/// refuses it; the ones that look for something return null when there is none.
namespace GPGPU {

enum class EGPGPUTechnologies : unsigned
{
    OpenCL = 1
};

/// How a kernel uses a buffer.
enum class EBufferAccess : unsigned
{
    Read = 1,
    Write = 2,
    ReadWrite = 3
};

/// A device refused an operation; the text names the operation and the device's code.
class ZORVAN_API CGPGPUError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
    CGPGPUError(const CGPGPUError&) = default;
    ~CGPGPUError() override;
};

/// Memory of the device; freed with its last owner.
class ZORVAN_API IGPGPUBuffer
{
public:
    virtual ~IGPGPUBuffer();
};

/// A function of a program with its arguments. Arguments are set in the order of the function's parameters.
class ZORVAN_API IGPGPUKernel
{
public:
    using Sizes = std::vector<std::size_t>;

    virtual ~IGPGPUKernel();
    /// Numbers of work items, one entry per dimension; an empty list leaves the choice to the device.
    virtual void SetWorkSize(const Sizes& global, const Sizes& local, const Sizes& offset) = 0;
    /// The next argument is the first one.
    virtual void ResetArguments() = 0;
    virtual void SetNextArgument(unsigned value) = 0;
    virtual void SetNextArgument(float value) = 0;
    /// A value of the given size in bytes, copied.
    virtual void SetNextArgument(const void* value, std::size_t size) = 0;
    virtual void SetNextArgument(const std::shared_ptr<IGPGPUBuffer>& buffer, EBufferAccess access) = 0;
};

/// Work for a device, done in the order in which it was enqueued.
class ZORVAN_API IGPGPUQueue
{
public:
    virtual ~IGPGPUQueue();
    virtual void Enqueue(const std::shared_ptr<IGPGPUKernel>& kernel) = 0;
    /// Copies a whole buffer to `target`, after all that was enqueued before; returns when it is there.
    virtual void Read(const std::shared_ptr<IGPGPUBuffer>& buffer, void* target) = 0;
    /// Returns when all that was enqueued is done.
    virtual void Finish() = 0;
};

class ZORVAN_API IGPGPUProgram
{
public:
    virtual ~IGPGPUProgram();
    /// @return  null when the program has no kernel of this name
    virtual std::shared_ptr<IGPGPUKernel> CreateKernel(const std::string& name, unsigned flags) = 0;
};

class ZORVAN_API IGPGPUContext
{
public:
    virtual ~IGPGPUContext();
    /// @return  null when the device gives none
    virtual std::shared_ptr<IGPGPUQueue> CreateQueue() = 0;
    /// @param name     for messages
    /// @param text     source of the program
    /// @param options  of the compiler
    /// @return         null when it cannot be built; the reason is logged
    virtual std::shared_ptr<IGPGPUProgram> BuildProgram(const std::string& name, const std::string& text,
                                                        const std::string& options) = 0;
    /// @param host   null, or the content
    /// @param name   for messages
    /// @param width  components per element, for services that type their buffers
    /// A buffer of no elements is allowed; there is nothing to read in it.
    virtual std::shared_ptr<IGPGPUBuffer> CreateBuffer(std::size_t numElements, std::size_t elementSize,
                                                       const void* host, EBufferAccess access, const std::string& name,
                                                       unsigned width) = 0;
};

class ZORVAN_API IGPGPUDevice
{
public:
    struct Description
    {
        std::string name;
        std::string platform;
        std::string type; ///< "GPU", "CPU", "accelerator" or "other"
        unsigned computeUnits = 0;
        std::size_t memory = 0; ///< bytes
    };

    virtual ~IGPGPUDevice();
    [[nodiscard]] virtual Description Describe() const = 0;
    /// @return  null when the device gives none
    virtual std::shared_ptr<IGPGPUContext> CreateContext() = 0;
};

class ZORVAN_API IGPGPUAccessor
{
public:
    virtual ~IGPGPUAccessor();
    /// The best device: a graphics processor before an accelerator before a processor, in the system's order. Null when
    /// there is none.
    virtual std::shared_ptr<IGPGPUDevice> GetDevice() = 0;
    /// All of them, the best first.
    virtual std::vector<std::shared_ptr<IGPGPUDevice>> GetDevices() = 0;
};

class ZORVAN_API CGPGPUFactory
{
public:
    /// @return  null when the system has no such technology
    static std::shared_ptr<IGPGPUAccessor> TechnologyAccess(EGPGPUTechnologies technology);
    /// Gives a host's own service from now on; null goes back to that of the library. Thread-safe.
    static void Install(std::shared_ptr<IGPGPUAccessor> accessor);
};

} // namespace GPGPU
