// SPDX-License-Identifier: MIT
#include "pageserver.h"

#include "livepage.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace live {

namespace {

using nlohmann::json;

constexpr std::size_t uiPointsShown = 300; // a patch

json pointsOf(const CModel::Patch& patch)
{
    json points = json::array();
    const std::size_t step = std::max<std::size_t>(1, patch.set->Size() / uiPointsShown);
    for (std::size_t i = 0; i < patch.set->Size(); i += step) {
        const kdtree::Vector<3> p = patch.pose * patch.set->GetPoint(i);
        for (const float c : {p.x, p.y, p.z}) points.push_back(std::round(100.0 * static_cast<double>(c)) / 100.0);
    }
    return points;
}

} // namespace

CPageServer::CPageServer(const CModel& model, int port)
    : m_model(model), m_server(std::make_unique<httplib::Server>()), m_port(port)
{
    m_server->Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(std::string(sLivePage), "text/html; charset=utf-8");
    });
    m_server->Get("/state", [this](const httplib::Request&, httplib::Response& response) {
        response.set_content(state(), "application/json");
    });
    // Without the library's own options, by which two servers may share a port.
    m_server->set_socket_options([](socket_t socket) {
        const int isOn = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn);
    });
    constexpr const char* sHost = "127.0.0.1"; // for this machine only
    if (port == 0)
        m_port = m_server->bind_to_any_port(sHost);
    else if (!m_server->bind_to_port(sHost, port))
        throw std::runtime_error("port " + std::to_string(port) + " is in use; give another one, or 0 for any");
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
}

CPageServer::~CPageServer()
{
    while (!m_server->is_running()) std::this_thread::yield(); // stop before that would be lost
    m_server->stop();
    m_thread.join();
}

std::string CPageServer::Address() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }

void CPageServer::Add(const FrameRecord& frame, const prereg::CTrafo& pose)
{
    const std::lock_guard lock(m_mutex);
    m_frames.push_back(frame);
    m_pose = pose;
}

void CPageServer::End()
{
    const std::lock_guard lock(m_mutex);
    m_isDone = true;
}

std::string CPageServer::state() const
{
    json state;
    {
        // Before the rest is looked at: what is done then has all of it.
        const std::lock_guard lock(m_mutex);
        state["done"] = m_isDone;
    }
    const CModel::State model = m_model.GetState();
    json points = json::array();
    for (const auto& [number, patch] : model.patches) points.push_back(pointsOf(patch));
    state["patches"] = points;
    state["waiting"] = model.uiWaiting;
    const std::lock_guard lock(m_mutex);
    state["table"] = Table(m_frames);
    state["picture"] = Picture(m_frames);
    state["share"] = ShareInTime(m_frames);
    state["frames"] = m_frames.size();
    if (m_pose) state["scanner"] = {m_pose.GetTranslation().x, m_pose.GetTranslation().y};
    return state.dump();
}

} // namespace live
