// SPDX-License-Identifier: MIT
#include "interpreter.h"

#include "zorvan/documents/bson.h"
#include "zorvan/platform/clogger.h"

#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>

namespace bindings {

namespace {

// Ten times a second nobody notices, neither who waits for Ctrl-C nor the other threads of the interpreter.
constexpr std::chrono::milliseconds pollInterval{100};
constexpr std::size_t uiMostRecords = 1000;

// A callback that waits for something that has ended already must not hold the end up for ever.
constexpr std::chrono::seconds mostPatience{5};

/// How often this thread is inside the gate: a callback may call the library.
thread_local unsigned uiDepth = 0;

/// Closed when the interpreter begins to end. From then on a thread that takes the interpreter's lock, or takes it back
/// after a system call, is killed where it stands. In the middle of C++ that runs destructors without the lock, so who
/// works with Python in C++ is inside, and the end waits for them.
class CGate
{
public:
    /// False once it is closed, but for those inside and for the thread that has closed it.
    [[nodiscard]] bool Enter()
    {
        const std::lock_guard lock(m_mutex);
        if (m_isClosed && uiDepth == 0 && m_closer != std::this_thread::get_id()) return false;
        if (uiDepth++ == 0) ++m_numInside;
        return true;
    }
    void Leave()
    {
        const std::lock_guard lock(m_mutex);
        if (--uiDepth == 0 && --m_numInside == 0) m_empty.notify_all();
    }
    /// Waits for those inside, so without the interpreter's lock.
    void Close()
    {
        std::unique_lock lock(m_mutex);
        m_closer = std::this_thread::get_id();
        m_isClosed = true;
        m_empty.wait_for(lock, mostPatience, [this] { return m_numInside == (uiDepth > 0 ? 1 : 0); });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_empty;
    std::thread::id m_closer;
    unsigned m_numInside = uiDepth > 0 ? 1 : 0; ///< threads; the only one of a child may be inside
    bool m_isClosed = false;
};

struct Record
{
    int iLevel;
    std::string domain;
    std::string text;
};

/// Messages wait here for a thread that has the interpreter's lock: a sink that took it would wait for who has it and
/// logs.
class CRecords
{
public:
    void Add(Record record)
    {
        const std::lock_guard lock(m_mutex);
        if (m_records.size() < uiMostRecords)
            m_records.push_back(std::move(record));
        else
            ++m_numLost;
    }
    [[nodiscard]] std::deque<Record> Take()
    {
        const std::lock_guard lock(m_mutex);
        if (m_numLost > 0)
            m_records.push_back({static_cast<int>(Logging::ELogLevel::Warn), "bindings",
                                 std::to_string(m_numLost) + " more messages came at once and are lost"});
        m_numLost = 0;
        return std::exchange(m_records, {});
    }

private:
    std::mutex m_mutex;
    std::deque<Record> m_records;
    std::size_t m_numLost = 0;
};

// Never destroyed: threads may outlive the interpreter.
CGate& gate()
{
    static CGate* const instance = new CGate;
    return *instance;
}

CRecords& records()
{
    static CRecords* const instance = new CRecords;
    return *instance;
}

/// A child has none of the threads that may have held a lock when it was made.
extern "C" void renewLocks()
{
    new (&gate()) CGate;
    new (&records()) CRecords;
}

std::string toUtf8(std::wstring_view text)
{
    try {
        return bson::convert(std::wstring(text));
    } catch (const std::range_error&) {
        return "(a message that is no text)";
    }
}

void keepRecord(const Logging::LogRecord& record)
{
    records().Add({static_cast<int>(record.eLevel), toUtf8(record.domain), toUtf8(record.text)});
}

void close()
{
    DeliverLog();
    Logging::SetLogSink([](const Logging::LogRecord&) {}, Logging::ELogLevel::Fatal);
    const CReleasedLock released;
    gate().Close();
}

} // namespace

CReleasedLock::CReleasedLock() : m_state(PyEval_SaveThread()) {}

CReleasedLock::~CReleasedLock()
{
    while (!gate().Enter()) ::pause();
    PyEval_RestoreThread(m_state);
    gate().Leave();
}

CTakenLock::CTakenLock() : m_isTaken(gate().Enter())
{
    if (!m_isTaken) return;
    m_state = PyGILState_Ensure();
}

CTakenLock::~CTakenLock()
{
    if (!m_isTaken) return;
    PyGILState_Release(m_state);
    gate().Leave();
}

void DeliverLog()
{
    const CTakenLock taken;
    if (!taken) return;
    for (const Record& record : records().Take()) {
        try {
            const py::object logger = py::module_::import("logging").attr("getLogger")("zorvan." + record.domain);
            logger.attr("log")(10 * std::max(record.iLevel, 1), "%s", record.text); // trace becomes debug
        } catch (py::error_already_set& error) {
            error.discard_as_unraisable("zorvan: passing a message on");
        }
    }
}

CLongCall::CLongCall(const py::object& progress, const py::object& stop)
    : m_progress(progress), m_stop(stop), m_lastPoll(Clock::now())
{
}

template <typename Call>
void CLongCall::guarded(const Call& call)
{
    try {
        call();
    } catch (py::error_already_set& error) {
        m_isStopped = true;
        if (!error.matches(PyExc_KeyboardInterrupt) && !m_error) m_error = std::current_exception();
    }
}

void CLongCall::begin(std::string_view stage)
{
    m_stage = stage;
    m_lastShown = {};
}

void CLongCall::show(double fraction)
{
    const auto now = Clock::now();
    if (m_isStopped || (fraction < 1.0 && now - m_lastShown < pollInterval)) return;
    m_lastShown = now;
    if (const CTakenLock taken; taken) guarded([&] { m_progress(m_stage, fraction); });
}

bool CLongCall::isAborted()
{
    const auto now = Clock::now();
    if (!m_isStopped && now - m_lastPoll >= pollInterval) {
        m_lastPoll = now;
        poll();
    }
    return m_isStopped;
}

void CLongCall::poll()
{
    const CTakenLock taken;
    if (!taken) {
        m_isStopped = true;
        return;
    }
    guarded([&] {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        DeliverLog();
        if (!m_stop.is_none() && m_stop().cast<bool>()) m_isStopped = true;
    });
}

void CLongCall::raise()
{
    if (m_error) std::rethrow_exception(m_error);
}

void AddInterpreter(py::module_& module)
{
    ::pthread_atfork(nullptr, nullptr, &renewLocks);
    Logging::SetLogSink(&keepRecord, Logging::ELogLevel::Warn);
    py::module_::import("atexit").attr("register")(py::cpp_function(&close));
    module.def(
        "_set_log_level", [](int level) { Logging::SetLogLevel(static_cast<Logging::ELogLevel>(level)); },
        py::arg("level"), "Passes messages on from this level: 0 trace, 1 debug, 2 info, 3 warning, 4 error, 5 fatal.");
}

} // namespace bindings
