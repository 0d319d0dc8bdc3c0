// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/newfile.h"
#include "zorvan/scans/pointlistener.h"
#include "zorvan/scans/scan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace Zorvan {

/// By the number of the scan in its file.
using ScanPoses = std::map<std::size_t, FramePose>;

/// A pose to be applied to many points. Lengths in the unit of the file.
class CMovement
{
public:
    /// @param ofScans  new poses of the scans of a file that holds several, by number, in place of a common one
    explicit CMovement(const FramePose& pose, ScanPoses ofScans = {})
        : m_pose(pose), m_rows(RotationRows(pose)), m_ofScans(std::move(ofScans))
    {
    }

    [[nodiscard]] const FramePose& Pose() const { return m_pose; }
    /// What moves the scan of this number, which has a pose already, in the frame of the file.
    [[nodiscard]] FramePose OfScan(std::size_t number, const FramePose& before) const
    {
        const auto found = m_ofScans.find(number);
        return found == m_ofScans.end() ? m_pose : Compose(found->second, Inverse(before));
    }
    [[nodiscard]] bool IsTurned() const { return m_pose.rotation != FramePose{}.rotation; }
    [[nodiscard]] Position Direction(const Position& v) const
    {
        return {dot(m_rows[0], v), dot(m_rows[1], v), dot(m_rows[2], v)};
    }
    [[nodiscard]] Position Point(const Position& p) const
    {
        const Position turned = Direction(p);
        return {turned[0] + m_pose.position[0], turned[1] + m_pose.position[1], turned[2] + m_pose.position[2]};
    }

private:
    [[nodiscard]] static double dot(const Position& a, const Position& b)
    {
        return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    }

    FramePose m_pose;
    std::array<Position, 3> m_rows;
    ScanPoses m_ofScans;
};

/// Thrown where the hooks stop the work; whoever began it catches it.
struct Stopped
{
};

/// The bytes of a file on their way into another one, or to somebody who hears of its points: a few megabytes at a time
/// are in memory, whatever its size.
class ZORVAN_SCANS_API CMoveStream
{
public:
    static constexpr std::size_t uiBlock = std::size_t{1} << 22U;

    /// @param to  must outlive this
    CMoveStream(const std::filesystem::path& from, const CNewFile& to, const Hooks& hooks)
        : CMoveStream(from, &to, nullptr, hooks)
    {
    }
    /// Nothing is written: what is put is forgotten. @param listener  must outlive this; null: nobody
    CMoveStream(const std::filesystem::path& from, IPointListener* listener, const Hooks& hooks)
        : CMoveStream(from, nullptr, listener, hooks)
    {
    }

    /// Who hears of points in place of their being moved; null: they are moved.
    [[nodiscard]] IPointListener* Listener() const { return m_listener; }

    [[nodiscard]] const std::filesystem::path& File() const { return m_file; }
    [[nodiscard]] std::uint64_t Size() const { return m_size; }
    [[nodiscard]] std::uint64_t BytesLeft() const { return m_left + m_buffer.size() - m_at; }
    /// What has been put so far.
    [[nodiscard]] std::uint64_t Written() const { return m_written + m_out.size(); }

    /// What comes next, at most a block, and at least `least` bytes of it where there are so many; stays to be taken.
    std::string_view Peek(std::size_t least = uiBlock);
    /// The next bytes, valid until the next call. @throws CInputError when they are not there
    std::string_view Take(std::size_t size);
    /// The next line with its end; empty at the end of the file. @throws CInputError for a line longer than a block
    std::string_view TakeLine();

    void Put(std::string_view bytes);
    /// Takes and puts. @throws CInputError
    void Copy(std::uint64_t size);
    /// Behind the points. Nobody reads it where nothing is written.
    void CopyRest() { Copy(m_to != nullptr ? BytesLeft() : 0); }
    /// Over what has been put there.
    void PutAt(std::uint64_t place, std::string_view bytes);
    /// All that was put is in the file afterwards.
    void Flush();

    /// @throws CInputError "FILE: line 7: WHY; ..."
    [[noreturn]] void FailLine(const std::string& why) const;
    [[noreturn]] void Fail(const std::string& why, const std::string& advice) const;

private:
    CMoveStream(const std::filesystem::path& from, const CNewFile* to, IPointListener* listener, const Hooks& hooks);

    std::filesystem::path m_file;
    const CNewFile* m_to;
    IPointListener* m_listener;
    Hooks m_hooks;
    std::ifstream m_stream;
    std::uint64_t m_size = 0;
    std::uint64_t m_left = 0; ///< in the file, behind the buffer
    std::uint64_t m_line = 0; ///< of lines taken
    std::uint64_t m_written = 0;
    std::string m_buffer;
    std::size_t m_at = 0; ///< what of the buffer has been taken
    std::string m_out;
};

} // namespace Zorvan
