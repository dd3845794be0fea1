#pragma once

#include <exception>
#include <functional>
#include <future>
#include <string>

#include "tests/edge/raw_session.h"
#include "tests/support/wire_text.h"

namespace tests {

/// A server whose every byte a test decides. The script runs on a thread of its own for one connection; the connection
/// closes with its end.
class scripted_server_t {
  public:
    using script_t = std::function<void(raw_peer_t&)>;

    explicit scripted_server_t(script_t script)
        : work_(std::async(std::launch::async, [this, script = std::move(script)] {
              raw_peer_t peer = listener_.Accept();
              script(peer);
          })) {}

    std::uint16_t Port() const { return listener_.Port(); }
    /// Waits for the script and throws what it threw.
    void Join() { work_.get(); }

  private:
    raw_listener_t listener_;
    std::future<void> work_;
};

inline std::uint32_t ReadU32(raw_peer_t& peer) {
    return U32At(peer.Receive(4), 0);
}

inline void SkipString(raw_peer_t& peer) {
    peer.Receive(ReadU32(peer));
}

/// Reads the preamble and grants a session.
inline void Grant(raw_peer_t& peer) {
    peer.Receive(kClientHelloSize);
    peer.Send(ServerHello());
}

/// Reads a question for existing files.
inline void ReadQuestion(raw_peer_t& peer) {
    peer.Receive(4);
    for (std::uint32_t left = ReadU32(peer); left != 0; --left) {
        SkipString(peer);
    }
}

/// Reads a question and answers that nothing exists.
inline void AnswerQuestion(raw_peer_t& peer) {
    ReadQuestion(peer);
    peer.Send(wire_text_t().U32(0).U32(0).Bytes());
}

/// Reads the message of an agent's item.
inline void ReadItem(raw_peer_t& peer) {
    peer.Receive(4);
    SkipString(peer);
    peer.Receive(4 + 4 + 16);
    SkipString(peer);
    SkipString(peer);
    peer.Receive(8 + 8 + 4 + 4 + 4 + 8);  // the last three begin the file info
    SkipString(peer);
    peer.Receive(4);
    SkipString(peer);
    peer.Receive(4 + 4 + 3 * 12 + 4);
    for (int list = 0; list < 3; ++list) {
        SkipString(peer);
    }
    for (std::uint32_t left = 2 * ReadU32(peer); left != 0; --left) {
        SkipString(peer);
    }
    peer.Receive(8 + 4 + 4 + 4);
}

/// All up to the frames of the first item.
inline void BeginItem(raw_peer_t& peer) {
    Grant(peer);
    AnswerQuestion(peer);
    ReadItem(peer);
    peer.Send(wire_text_t().U32(0).U32(0).Bytes());
    peer.Send(peer.Receive(16));
}

}  // namespace tests
