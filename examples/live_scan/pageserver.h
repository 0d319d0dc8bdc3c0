// SPDX-License-Identifier: MIT
#pragma once

#include "latencies.h"

#include <memory>
#include <mutex>
#include <string>

namespace httplib {
class Server;
}

namespace live {

/// A page on this machine that follows the scan: the patches from above, and the latency of each frame.
class CPageServer
{
public:
    /// @param port  0: any that is free. @throws std::runtime_error when it is in use
    CPageServer(const CModel& model, int port);
    ~CPageServer();
    CPageServer(const CPageServer&) = delete;
    CPageServer& operator=(const CPageServer&) = delete;

    [[nodiscard]] std::string Address() const;
    void Add(const FrameRecord& frame, const prereg::CTrafo& pose);
    void End();

private:
    [[nodiscard]] std::string state() const;

    const CModel& m_model;
    std::unique_ptr<httplib::Server> m_server;
    int m_port;
    std::thread m_thread;
    mutable std::mutex m_mutex; ///< guards what follows
    std::vector<FrameRecord> m_frames;
    prereg::CTrafo m_pose;
    bool m_isDone = false;
};

} // namespace live
