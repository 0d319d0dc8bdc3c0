// SPDX-License-Identifier: MIT
// The compute service over OpenCL 1.2.

#include "zorvan/platform/gpgpu_opencl.h"

#include "zorvan/platform/clogger.h"

#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>

#include <algorithm>
#include <array>
#include <utility>

namespace GPGPU {

namespace {

const Logging::CLogger logger(L"QAV.GPGPU");

/// Names and messages of a device, byte by byte: nothing says how they are encoded.
std::wstring wide(const std::string& text)
{
    std::wstring result;
    for (const char c : text) result += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return result;
}

void require(cl_int code, const std::string& what)
{
    if (code != CL_SUCCESS) throw CGPGPUError("OpenCL: " + what + " failed with code " + std::to_string(code));
}

/// An OpenCL object, released with its owner.
template <typename Handle, cl_int(CL_API_CALL* release)(Handle)>
class TOwned
{
public:
    explicit TOwned(Handle handle) : m_handle(handle) {}
    TOwned(TOwned&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    TOwned(const TOwned&) = delete;
    TOwned& operator=(const TOwned&) = delete;
    TOwned& operator=(TOwned&&) = delete;
    ~TOwned()
    {
        if (m_handle != nullptr) release(m_handle);
    }
    [[nodiscard]] Handle Get() const { return m_handle; }

private:
    Handle m_handle;
};

using Buffer = TOwned<cl_mem, clReleaseMemObject>;
using Kernel = TOwned<cl_kernel, clReleaseKernel>;
using Queue = TOwned<cl_command_queue, clReleaseCommandQueue>;
using Program = TOwned<cl_program, clReleaseProgram>;
using Context = TOwned<cl_context, clReleaseContext>;

/// A service gets back only what it made itself.
template <typename Own, typename Given>
const Own& ownOf(const std::shared_ptr<Given>& given)
{
    const auto* own = dynamic_cast<const Own*>(given.get());
    if (own == nullptr) throw CGPGPUError("OpenCL: an object of another service");
    return *own;
}

class COpenCLBuffer : public IGPGPUBuffer
{
public:
    COpenCLBuffer(Buffer buffer, std::size_t size) : m_buffer(std::move(buffer)), m_size(size) {}
    [[nodiscard]] cl_mem Get() const { return m_buffer.Get(); }
    [[nodiscard]] std::size_t Size() const { return m_size; }

private:
    Buffer m_buffer;
    std::size_t m_size;
};

class COpenCLKernel : public IGPGPUKernel
{
public:
    explicit COpenCLKernel(Kernel kernel) : m_kernel(std::move(kernel)) {}

    void SetWorkSize(const Sizes& global, const Sizes& local, const Sizes& offset) override
    {
        m_global = global;
        m_local = local;
        m_offset = offset;
    }
    void ResetArguments() override { m_next = 0; }
    void SetNextArgument(unsigned value) override { SetNextArgument(&value, sizeof value); }
    void SetNextArgument(float value) override { SetNextArgument(&value, sizeof value); }
    void SetNextArgument(const void* value, std::size_t size) override
    {
        require(clSetKernelArg(m_kernel.Get(), m_next, size, value), "argument " + std::to_string(m_next));
        ++m_next;
    }
    void SetNextArgument(const std::shared_ptr<IGPGPUBuffer>& buffer, EBufferAccess) override
    {
        const cl_mem memory = ownOf<COpenCLBuffer>(buffer).Get();
        SetNextArgument(&memory, sizeof(cl_mem)); // NOLINT(bugprone-sizeof-expression): a handle
    }

    void Enqueue(cl_command_queue queue) const
    {
        const auto orDefault = [](const Sizes& sizes) { return sizes.empty() ? nullptr : sizes.data(); };
        require(clEnqueueNDRangeKernel(queue, m_kernel.Get(), static_cast<cl_uint>(m_global.size()),
                                       orDefault(m_offset), m_global.data(), orDefault(m_local), 0, nullptr, nullptr),
                "starting a kernel");
    }

private:
    Kernel m_kernel;
    Sizes m_global;
    Sizes m_local;
    Sizes m_offset;
    cl_uint m_next = 0;
};

class COpenCLQueue : public IGPGPUQueue
{
public:
    explicit COpenCLQueue(Queue queue) : m_queue(std::move(queue)) {}

    void Enqueue(const std::shared_ptr<IGPGPUKernel>& kernel) override
    {
        ownOf<COpenCLKernel>(kernel).Enqueue(m_queue.Get());
    }
    void Read(const std::shared_ptr<IGPGPUBuffer>& buffer, void* target) override
    {
        const auto& own = ownOf<COpenCLBuffer>(buffer);
        if (own.Size() == 0) return;
        require(clEnqueueReadBuffer(m_queue.Get(), own.Get(), CL_TRUE, 0, own.Size(), target, 0, nullptr, nullptr),
                "reading a buffer");
    }
    void Finish() override { require(clFinish(m_queue.Get()), "waiting for the device"); }

private:
    Queue m_queue;
};

class COpenCLProgram : public IGPGPUProgram
{
public:
    explicit COpenCLProgram(Program program) : m_program(std::move(program)) {}

    std::shared_ptr<IGPGPUKernel> CreateKernel(const std::string& name, unsigned) override
    {
        cl_int code = CL_SUCCESS;
        Kernel kernel(clCreateKernel(m_program.Get(), name.c_str(), &code));
        if (code == CL_SUCCESS) return std::make_shared<COpenCLKernel>(std::move(kernel));
        logger.Error(L"kernel %ls cannot be made: code %d", wide(name).c_str(), code);
        return nullptr;
    }

private:
    Program m_program;
};

class COpenCLContext : public IGPGPUContext
{
public:
    COpenCLContext(Context context, cl_device_id device) : m_context(std::move(context)), m_device(device) {}

    std::shared_ptr<IGPGPUQueue> CreateQueue() override
    {
        cl_int code = CL_SUCCESS;
        Queue queue(clCreateCommandQueue(m_context.Get(), m_device, 0, &code));
        return code == CL_SUCCESS ? std::make_shared<COpenCLQueue>(std::move(queue)) : nullptr;
    }

    std::shared_ptr<IGPGPUProgram> BuildProgram(const std::string& name, const std::string& text,
                                                const std::string& options) override
    {
        const char* source = text.c_str();
        const std::size_t length = text.size();
        cl_int code = CL_SUCCESS;
        Program program(clCreateProgramWithSource(m_context.Get(), 1, &source, &length, &code));
        if (code == CL_SUCCESS) code = clBuildProgram(program.Get(), 1, &m_device, options.c_str(), nullptr, nullptr);
        if (code == CL_SUCCESS) return std::make_shared<COpenCLProgram>(std::move(program));
        logger.Error(L"program %ls cannot be built, code %d: %ls", wide(name).c_str(), code,
                     wide(buildLog(program)).c_str());
        return nullptr;
    }

    std::shared_ptr<IGPGPUBuffer> CreateBuffer(std::size_t numElements, std::size_t elementSize, const void* host,
                                               EBufferAccess access, const std::string& name, unsigned) override
    {
        const std::size_t size = numElements * elementSize;
        cl_mem_flags flags = access == EBufferAccess::Read    ? CL_MEM_READ_ONLY
                             : access == EBufferAccess::Write ? CL_MEM_WRITE_ONLY
                                                              : CL_MEM_READ_WRITE;
        const bool hasContent = host != nullptr && size > 0;
        if (hasContent) flags |= CL_MEM_COPY_HOST_PTR;
        cl_int code = CL_SUCCESS;
        // OpenCL knows no empty buffers.
        Buffer buffer(clCreateBuffer(m_context.Get(), flags, std::max<std::size_t>(size, 1),
                                     hasContent ? const_cast<void*>(host) : nullptr, &code)); // only read
        require(code, "creating the buffer \"" + name + "\" of " + std::to_string(size) + " bytes");
        return std::make_shared<COpenCLBuffer>(std::move(buffer), size);
    }

private:
    [[nodiscard]] std::string buildLog(const Program& program) const
    {
        std::size_t size = 0;
        if (program.Get() == nullptr ||
            clGetProgramBuildInfo(program.Get(), m_device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size) != CL_SUCCESS)
            return "no log";
        std::string log(size, '\0');
        clGetProgramBuildInfo(program.Get(), m_device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
        return log;
    }

    Context m_context;
    cl_device_id m_device;
};

class COpenCLDevice : public IGPGPUDevice
{
public:
    COpenCLDevice(cl_platform_id platform, cl_device_id device) : m_platform(platform), m_device(device) {}

    [[nodiscard]] Description Describe() const override
    {
        Description description;
        description.name = text(CL_DEVICE_NAME);
        std::array<char, 256> platform{};
        if (clGetPlatformInfo(m_platform, CL_PLATFORM_NAME, platform.size() - 1, platform.data(), nullptr) ==
            CL_SUCCESS)
            description.platform = platform.data();
        const cl_device_type type = Type();
        description.type = (type & CL_DEVICE_TYPE_GPU) != 0           ? "GPU"
                           : (type & CL_DEVICE_TYPE_ACCELERATOR) != 0 ? "accelerator"
                           : (type & CL_DEVICE_TYPE_CPU) != 0         ? "CPU"
                                                                      : "other";
        description.computeUnits = number<cl_uint>(CL_DEVICE_MAX_COMPUTE_UNITS);
        description.memory = number<cl_ulong>(CL_DEVICE_GLOBAL_MEM_SIZE);
        return description;
    }

    std::shared_ptr<IGPGPUContext> CreateContext() override
    {
        cl_int code = CL_SUCCESS;
        Context context(clCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &code));
        return code == CL_SUCCESS ? std::make_shared<COpenCLContext>(std::move(context), m_device) : nullptr;
    }

    [[nodiscard]] cl_device_type Type() const { return number<cl_device_type>(CL_DEVICE_TYPE); }

private:
    [[nodiscard]] std::string text(cl_device_info what) const
    {
        std::array<char, 256> value{};
        clGetDeviceInfo(m_device, what, value.size() - 1, value.data(), nullptr);
        return value.data();
    }
    template <typename Number>
    [[nodiscard]] Number number(cl_device_info what) const
    {
        Number value{};
        clGetDeviceInfo(m_device, what, sizeof value, &value, nullptr);
        return value;
    }

    cl_platform_id m_platform;
    cl_device_id m_device;
};

/// Calls an OpenCL operation that lists things: once for how many, once for them.
template <typename Handle, typename List>
std::vector<Handle> listOf(List list)
{
    cl_uint count = 0;
    if (list(0, nullptr, &count) != CL_SUCCESS || count == 0) return {};
    std::vector<Handle> handles(count);
    if (list(count, handles.data(), nullptr) != CL_SUCCESS) return {};
    return handles;
}

std::vector<std::shared_ptr<COpenCLDevice>> findDevices()
{
    std::vector<std::shared_ptr<COpenCLDevice>> devices;
    for (cl_platform_id platform : listOf<cl_platform_id>(clGetPlatformIDs)) {
        const auto list = [platform](cl_uint room, cl_device_id* ids, cl_uint* count) {
            return clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, room, ids, count);
        };
        for (cl_device_id device : listOf<cl_device_id>(list))
            devices.push_back(std::make_shared<COpenCLDevice>(platform, device));
    }
    const auto rank = [](const auto& device) {
        const cl_device_type type = device->Type();
        return (type & CL_DEVICE_TYPE_GPU) != 0 ? 0 : (type & CL_DEVICE_TYPE_ACCELERATOR) != 0 ? 1 : 2;
    };
    std::stable_sort(devices.begin(), devices.end(), [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    return devices;
}

class COpenCLAccessor : public IGPGPUAccessor
{
public:
    explicit COpenCLAccessor(const std::vector<std::shared_ptr<COpenCLDevice>>& devices)
        : m_devices(devices.begin(), devices.end())
    {
    }
    std::shared_ptr<IGPGPUDevice> GetDevice() override { return m_devices.front(); }
    std::vector<std::shared_ptr<IGPGPUDevice>> GetDevices() override { return m_devices; }

private:
    std::vector<std::shared_ptr<IGPGPUDevice>> m_devices;
};

} // namespace

std::shared_ptr<IGPGPUAccessor> MakeOpenCLAccessor()
{
    const auto devices = findDevices();
    return devices.empty() ? nullptr : std::make_shared<COpenCLAccessor>(devices);
}

} // namespace GPGPU
