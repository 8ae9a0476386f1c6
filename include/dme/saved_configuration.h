#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dme/arguments.h"
#include "dme/engine.h"
#include "dme/notifier.h"
#include "dme/session.h"

namespace dme {

// Keeps chosen subtrees of a data model in a JSON file, so that configuration survives a
// restart and a loss of power.
//
// The file is one object: for each subtree path, the READ of that path (fully expanded). It is
// written after changes, at most once per interval, at once on flush(), and a last time at
// stop(). Every write is crash-safe: the text goes to a temporary file in the same directory,
// which is synced, renamed over the file, and the directory synced, so that the file on disk is
// always either the previous complete state or the new one. restore() puts the saved state
// back through ordinary UPDATE requests, one per subtree and each all-or-nothing, so that a
// value the model no longer accepts leaves that subtree at its defaults and is reported; what a
// node does not let be written (read-only members, resource paths) is skipped by the nodes
// themselves, and a subtree whose node takes no UPDATE at all is saved but not restored.
//
// Thread-safety: every engine call is made under `engineMutex`, which must be the mutex that
// serialises the application's requests (for the HTTP binding, Server::engineMutex()). The
// public methods are called from the application's thread, not concurrently. Not copyable.
class SavedConfiguration : public IDataModelObserver {
  public:
    struct Options {
        // The file; its directory must exist and be writable.
        std::string file;
        // The subtrees to keep, as uris ("/system", "/network/interfaces/lan").
        std::vector<std::string> paths;
        // The least time between two writes that follow changes.
        std::chrono::milliseconds interval{1000};
        // The session that reads and restores the subtrees (it needs READ, UPDATE and
        // SUBSCRIBE there); the anonymous session when null. Must outlive this object.
        const RequestInfo* session = nullptr;
    };

    // Refers to `engine` and `engineMutex`, which must outlive this object; touches nothing yet.
    SavedConfiguration(DataModelEngine& engine, std::mutex& engineMutex, Options options);
    // Stops, as stop() does.
    ~SavedConfiguration() override;
    SavedConfiguration(const SavedConfiguration&) = delete;
    SavedConfiguration& operator=(const SavedConfiguration&) = delete;

    // Restores the saved subtrees. Returns one line for each problem, empty when there is
    // none: a file that cannot be read, a file that is not JSON (moved aside to
    // "<file>.corrupt"), a subtree that the file does not hold or that the model refused (with
    // the engine's answer). A missing file is no problem: there is nothing to restore yet.
    // Never throws for the file's content.
    std::vector<std::string> restore();
    // Subscribes to changes of the subtrees and starts the writing thread.
    void start();
    // Writes the current state of every subtree now. Throws std::runtime_error naming the file
    // when it cannot be written; the previous file is then left as it was.
    void flush();
    // Stops the writing thread and writes a last time, so that a change still waiting for its
    // interval is kept (an error is reported on the diagnostics hook). Does nothing when not
    // started.
    void stop();

    // IDataModelObserver: a subtree changed; the writing thread writes after the interval.
    void notify(const std::string& uri, const Arguments& arguments) override;

  private:
    std::string currentState();
    void writeLoop();

    DataModelEngine& engine_;
    std::mutex& engineMutex_;
    Options options_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool changed_ = false;
    bool stopping_ = false;
    std::thread writer_;
};

}  // namespace dme
