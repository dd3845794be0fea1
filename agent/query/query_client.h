#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/net/connection.h"
#include "agent/query/content_digest.h"
#include "agent/query/query_wire.h"
#include "agent/root/rename_at.h"
#include "agent/staging/partial.h"
#include "agent/tree/object_brief.h"
#include "mirrowen/util/clock.h"
#include "mirrowen/util/file_info.h"

namespace agent::query {

/// One object of a listed directory.
struct listed_object_t {
    std::string name;  ///< in the directory
    object_brief_t brief;
    std::string fault;  ///< why it could not be examined; empty when it was, else `brief` says nothing

    friend bool operator==(const listed_object_t&, const listed_object_t&) = default;
};

/// Asks an agent what is there, and has single names changed. Paths are names below the agent's root, as CheckName
/// takes them; the empty path is the root itself where one can be asked about it. Links are never followed.
///
/// Errors of every function: `exc::CRuntimeExc` with the far end's text, which names the path (its control bytes are
/// escaped), when the request failed there: the client goes on to be used. A path of more than kMaxNameBytes: "Path
/// [%1] is refused: %2.", nothing is sent. What breaks the connection, or comes over it and is no answer ("Invalid
/// message: %1." and others), leaves a client of which every call throws "The connection with [%1] has broken off.".
/// One thread at a time.
class query_client_t {
  public:
    /// Throws as OpenConnection does.
    query_client_t(const net::endpoint_t& endpoint, const net::remote_options_t& options);
    query_client_t(const query_client_t&) = delete;
    query_client_t& operator=(const query_client_t&) = delete;
    /// Tells the far end that the session is over.
    ~query_client_t();

    /// `tick` is called on the calling thread whenever the far end tells, every few seconds, that it still works on a
    /// request: so that whoever waits keeps other connections alive. It may call KeepAlive, but ask nothing.
    void OnWorking(std::function<void()> tick) { onWorking_ = std::move(tick); }

    /// Whether any owner can be given to what is written there. Asked once.
    bool KeepsOwners();

    /// What each path is, in the order of the question; nothing for what is not there or cannot be reached. Any number
    /// of paths, in as many requests as it takes. The first that could not be examined fails the call.
    std::vector<std::optional<object_brief_t>> Examine(const std::vector<std::string>& paths);

    /// What is in a directory, in byte order of the names. The far end's names are checked: each is a single component,
    /// none comes twice. More than kMaxListed objects, or kMaxListedBytes, throw "Directory [%1] has more objects than
    /// can be listed.".
    std::vector<listed_object_t> List(const std::string& directory);

    /// All attributes, extended ones included (of files and directories).
    util::CFileInfo ReadInfo(const std::string& path);

    /// See DigestFile: nothing when no regular file is there. Takes as long as the far end takes to read it.
    std::optional<content_digest_t> Digest(const std::string& path);

    /// What is kept there of a file whose transfer broke off, if its size and its time are still these.
    std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t size, const util::SFileTime& time);

    /// See RemoveObject, MakeDirectory and MoveObject. What is in the way is `exc::CAlreadyExistsExc`.
    void Remove(const std::string& path);
    void MakeDirectory(const std::string& path);
    void Move(const std::string& from, const std::string& to, EReplace replace);

    /// Keeps the far end from giving up a client that asks nothing for long: a question about nothing, when the last
    /// one was asked a quarter of the far end's idle time ago. Failures are logged; the next call reports them. Nothing
    /// while a request is under way.
    void KeepAlive() noexcept;

    /// Whether the next call has a chance: the connection has not broken off, and the last question is not so long ago
    /// that the far end may have given it up.
    bool IsUsable() const;

  private:
    std::chrono::milliseconds FarIdleTime() const;
    template <class Read>
    auto Ask(const question_t& question, const Read& read);
    void Send(const question_t& question);
    void AwaitAnswer();
    void ExaminePart(std::vector<std::string> paths, std::vector<std::optional<object_brief_t>>& found);
    std::vector<listed_object_t> ReadPages(const std::string& directory);
    void ReadPage(std::uint32_t count, std::vector<listed_object_t>& listed);

    net::connection_t connection_;
    io::binary_stream_tt stream_;
    util::IClock::steady_point_t askedAt_;
    std::optional<bool> keepsOwners_;
    std::function<void()> onWorking_;
    bool broken_ = false;  ///< also while a request is under way
};

}  // namespace agent::query
