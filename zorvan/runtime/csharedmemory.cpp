// SPDX-License-Identifier: MIT
#include "zorvan/runtime/csharedmemory.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace Zorvan {

CSharedMemory::CSharedMemory(const std::wstring& name, CNamedMemory handle, std::uint64_t size)
    : m_handle(std::move(handle))
{
    if (!m_handle) return;
    m_uniqueName = name;
    m_size = size;
}

CSharedMemory::CSharedMemory(const CSharedMemory& other) : CSharedMemory(Open(other.m_uniqueName, other.m_size)) {}

CSharedMemory& CSharedMemory::operator=(const CSharedMemory& other)
{
    if (this != &other) *this = Open(other.m_uniqueName, other.m_size);
    return *this;
}

CSharedMemory::CSharedMemory(CSharedMemory&& other) noexcept { *this = std::move(other); }

CSharedMemory& CSharedMemory::operator=(CSharedMemory&& other) noexcept
{
    m_uniqueName = other.m_uniqueName;
    m_handle = std::move(other.m_handle);
    m_size = other.m_size;
    return *this;
}

CSharedMemory CSharedMemory::Create(const std::wstring& name, std::uint64_t size)
{
    int error = 0;
    return {name, CNamedMemory::Create(name, size, error), size};
}

CSharedMemory CSharedMemory::Open(const std::wstring& name, std::uint64_t size)
{
    int error = 0;
    return {name, CNamedMemory::Open(name, error), size};
}

std::shared_ptr<void> CSharedMemory::CreateView()
{
    std::shared_ptr<void> view = m_handle.CreateView();
    if (!view) throw std::runtime_error("Zorvan::CSharedMemory::CreateView/MapViewOfFile: " + SystemErrorText(errno));
    return view;
}

} // namespace Zorvan
