// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/gpgpu.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace support {

/// Stands between the library and the compute service of this system. Every operation is reported by name before it is
/// passed on; a hook that throws makes it fail, one that returns false makes it give nothing. Installed while it lives.
class ComputeService
{
public:
    /// "device", "context", "queue", "program", "kernel", "buffer NAME", "enqueue", "read", "read done"
    using Hook = std::function<bool(const std::string& operation)>;

    explicit ComputeService(Hook hook);
    ~ComputeService() { GPGPU::CGPGPUFactory::Install(nullptr); }
    ComputeService(const ComputeService&) = delete;
    ComputeService& operator=(const ComputeService&) = delete;
};

namespace detail {

class Queue : public GPGPU::IGPGPUQueue
{
public:
    Queue(std::shared_ptr<IGPGPUQueue> queue, ComputeService::Hook hook)
        : m_queue(std::move(queue)), m_hook(std::move(hook))
    {
    }
    void Enqueue(const std::shared_ptr<GPGPU::IGPGPUKernel>& kernel) override
    {
        m_hook("enqueue");
        m_queue->Enqueue(kernel);
    }
    void Read(const std::shared_ptr<GPGPU::IGPGPUBuffer>& buffer, void* target) override
    {
        m_queue->Finish(); // so that a hook that measures sees the copy alone
        m_hook("read");
        m_queue->Read(buffer, target);
        m_hook("read done");
    }
    void Finish() override { m_queue->Finish(); }

private:
    std::shared_ptr<IGPGPUQueue> m_queue;
    ComputeService::Hook m_hook;
};

class Program : public GPGPU::IGPGPUProgram
{
public:
    Program(std::shared_ptr<IGPGPUProgram> program, ComputeService::Hook hook)
        : m_program(std::move(program)), m_hook(std::move(hook))
    {
    }
    std::shared_ptr<GPGPU::IGPGPUKernel> CreateKernel(const std::string& name, unsigned flags) override
    {
        return m_hook("kernel") ? m_program->CreateKernel(name, flags) : nullptr;
    }

private:
    std::shared_ptr<IGPGPUProgram> m_program;
    ComputeService::Hook m_hook;
};

class Context : public GPGPU::IGPGPUContext
{
public:
    Context(std::shared_ptr<IGPGPUContext> context, ComputeService::Hook hook)
        : m_context(std::move(context)), m_hook(std::move(hook))
    {
    }
    std::shared_ptr<GPGPU::IGPGPUQueue> CreateQueue() override
    {
        return m_hook("queue") ? std::make_shared<Queue>(m_context->CreateQueue(), m_hook) : nullptr;
    }
    std::shared_ptr<GPGPU::IGPGPUProgram> BuildProgram(const std::string& name, const std::string& text,
                                                       const std::string& options) override
    {
        // A refused program is one that the compiler of the device does not take.
        const bool isPassed = m_hook("program");
        const auto program = m_context->BuildProgram(name, isPassed ? text : "no program " + text, options);
        return program == nullptr ? nullptr : std::make_shared<Program>(program, m_hook);
    }
    std::shared_ptr<GPGPU::IGPGPUBuffer> CreateBuffer(std::size_t numElements, std::size_t elementSize,
                                                      const void* host, GPGPU::EBufferAccess access,
                                                      const std::string& name, unsigned width) override
    {
        m_hook("buffer " + name);
        return m_context->CreateBuffer(numElements, elementSize, host, access, name, width);
    }

private:
    std::shared_ptr<IGPGPUContext> m_context;
    ComputeService::Hook m_hook;
};

class Device : public GPGPU::IGPGPUDevice
{
public:
    Device(std::shared_ptr<IGPGPUDevice> device, ComputeService::Hook hook)
        : m_device(std::move(device)), m_hook(std::move(hook))
    {
    }
    [[nodiscard]] Description Describe() const override { return m_device->Describe(); }
    std::shared_ptr<GPGPU::IGPGPUContext> CreateContext() override
    {
        return m_hook("context") ? std::make_shared<Context>(m_device->CreateContext(), m_hook) : nullptr;
    }

private:
    std::shared_ptr<IGPGPUDevice> m_device;
    ComputeService::Hook m_hook;
};

class Accessor : public GPGPU::IGPGPUAccessor
{
public:
    Accessor(std::shared_ptr<IGPGPUAccessor> accessor, ComputeService::Hook hook)
        : m_accessor(std::move(accessor)), m_hook(std::move(hook))
    {
    }
    std::shared_ptr<GPGPU::IGPGPUDevice> GetDevice() override
    {
        return m_hook("device") ? std::make_shared<Device>(m_accessor->GetDevice(), m_hook) : nullptr;
    }
    std::vector<std::shared_ptr<GPGPU::IGPGPUDevice>> GetDevices() override { return {GetDevice()}; }

private:
    std::shared_ptr<IGPGPUAccessor> m_accessor;
    ComputeService::Hook m_hook;
};

} // namespace detail

inline ComputeService::ComputeService(Hook hook)
{
    const auto own = GPGPU::CGPGPUFactory::TechnologyAccess(GPGPU::EGPGPUTechnologies::OpenCL);
    if (own != nullptr) GPGPU::CGPGPUFactory::Install(std::make_shared<detail::Accessor>(own, std::move(hook)));
}

} // namespace support
