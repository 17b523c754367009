#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/URLRequest.hpp>

#include <memory>

namespace fexo {

class URLSession;

// One transfer of a URLSession, made by URLSession::dataTask. Nothing is sent until resume().
// Copies are handles of the same task. The session keeps a started task alive until its
// completion has run, so the handle may be dropped right after resume().
class FEXO_EXPORT URLSessionDataTask {
public:
    // Starts the transfer; only the first call on the task (through any copy) does anything.
    // Returns at once; the completion runs later on the session's thread, never inside this
    // call. Does nothing when the session has been destroyed or the process is exiting.
    void resume() const;

    const URLRequest& originalRequest() const;

    struct State;

private:
    friend class URLSession;
    explicit URLSessionDataTask(std::shared_ptr<State> state);

    std::shared_ptr<State> state_;
};

} // namespace fexo
