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

template <typename Interface>
class Hooked : public Interface
{
public:
    Hooked(std::shared_ptr<Interface> inner, ComputeService::Hook hook)
        : m_inner(std::move(inner)), m_hook(std::move(hook))
    {
    }

protected:
    std::shared_ptr<Interface> m_inner;
    ComputeService::Hook m_hook;
};

class Queue : public Hooked<GPGPU::IGPGPUQueue>
{
public:
    using Hooked::Hooked;
    void Enqueue(const std::shared_ptr<GPGPU::IGPGPUKernel>& kernel) override
    {
        m_hook("enqueue");
        m_inner->Enqueue(kernel);
    }
    void Read(const std::shared_ptr<GPGPU::IGPGPUBuffer>& buffer, void* target) override
    {
        m_inner->Finish(); // so that a hook that measures sees the copy alone
        m_hook("read");
        m_inner->Read(buffer, target);
        m_hook("read done");
    }
    void Finish() override { m_inner->Finish(); }
};

class Program : public Hooked<GPGPU::IGPGPUProgram>
{
public:
    using Hooked::Hooked;
    std::shared_ptr<GPGPU::IGPGPUKernel> CreateKernel(const std::string& name, unsigned flags) override
    {
        return m_hook("kernel") ? m_inner->CreateKernel(name, flags) : nullptr;
    }
};

class Context : public Hooked<GPGPU::IGPGPUContext>
{
public:
    using Hooked::Hooked;
    std::shared_ptr<GPGPU::IGPGPUQueue> CreateQueue() override
    {
        return m_hook("queue") ? std::make_shared<Queue>(m_inner->CreateQueue(), m_hook) : nullptr;
    }
    std::shared_ptr<GPGPU::IGPGPUProgram> BuildProgram(const std::string& name, const std::string& text,
                                                       const std::string& options) override
    {
        // A refused program is one that the compiler of the device does not take.
        const bool isPassed = m_hook("program");
        const auto program = m_inner->BuildProgram(name, isPassed ? text : "no program " + text, options);
        return program == nullptr ? nullptr : std::make_shared<Program>(program, m_hook);
    }
    std::shared_ptr<GPGPU::IGPGPUBuffer> CreateBuffer(std::size_t numElements, std::size_t elementSize,
                                                      const void* host, GPGPU::EBufferAccess access,
                                                      const std::string& name, unsigned width) override
    {
        m_hook("buffer " + name);
        return m_inner->CreateBuffer(numElements, elementSize, host, access, name, width);
    }
};

class Device : public Hooked<GPGPU::IGPGPUDevice>
{
public:
    using Hooked::Hooked;
    [[nodiscard]] Description Describe() const override { return m_inner->Describe(); }
    std::shared_ptr<GPGPU::IGPGPUContext> CreateContext() override
    {
        return m_hook("context") ? std::make_shared<Context>(m_inner->CreateContext(), m_hook) : nullptr;
    }
};

class Accessor : public Hooked<GPGPU::IGPGPUAccessor>
{
public:
    using Hooked::Hooked;
    std::shared_ptr<GPGPU::IGPGPUDevice> GetDevice() override
    {
        return m_hook("device") ? std::make_shared<Device>(m_inner->GetDevice(), m_hook) : nullptr;
    }
    std::vector<std::shared_ptr<GPGPU::IGPGPUDevice>> GetDevices() override { return {GetDevice()}; }
};

} // namespace detail

inline ComputeService::ComputeService(Hook hook)
{
    const auto own = GPGPU::CGPGPUFactory::TechnologyAccess(GPGPU::EGPGPUTechnologies::OpenCL);
    if (own != nullptr) GPGPU::CGPGPUFactory::Install(std::make_shared<detail::Accessor>(own, std::move(hook)));
}

} // namespace support
