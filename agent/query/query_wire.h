#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/net/session_channel.h"
#include "agent/tree/object_brief.h"
#include "mirrowen/digest/digests.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/util/file_info.h"

/// The messages of the query service, as docs/protocol.md ("Query service") gives them.
namespace agent::query {

/// What is asked. The numbers stand on the wire.
enum class EQuery : std::uint32_t {
    eAbout = 1,
    eEnd = 2,
    eExamine = 3,
    eList = 4,
    eReadInfo = 5,
    eDigest = 6,
    eFindPartial = 7,
    eRemove = 8,
    eMakeDirectory = 9,
    eMove = 10,
};

/// How a request went. The numbers stand on the wire; those of failures are those of the acknowledgements.
enum class EAnswer : std::uint32_t {
    eOk = 0,
    eFailed = 1,
    eAlreadyExists = 2,
    eWorking = 3,  ///< not an answer yet: it is being worked on
};

/// The most names in one question and the most objects in one page of a list.
inline constexpr std::uint32_t kMaxObjects = 512;
/// The most objects of a whole list, and the most memory that a list may take.
inline constexpr std::uint64_t kMaxListed = 1'000'000;
inline constexpr std::uint64_t kMaxListedBytes = std::uint64_t{1} << 30;
/// The most bytes of a text about a single object.
inline constexpr std::uint32_t kMaxObjectText = 1024;

/// A request, with the fields that its kind has.
struct question_t {
    EQuery query = EQuery::eEnd;
    std::vector<std::string> names{};  ///< any number up to kMaxObjects for eExamine; one, two for eMove, else none
    std::uint64_t size = 0;            ///< only eFindPartial
    util::SFileTime time{};            ///< only eFindPartial
    bool replace = false;              ///< only eMove

    friend bool operator==(const question_t&, const question_t&) = default;
};

void WriteQuestion(io::binary_stream_tt& stream, const question_t& question);
/// Reads what follows the code of `query`. Throws `exc::CRuntimeExc` "Unknown question [%1].", "Question about [%1]
/// names is longer than the allowed [%2].", "Invalid message: %1.", and as the stream does for a name that is too long.
question_t ReadQuestion(io::binary_stream_tt& stream, EQuery query);

/// What is known of one name: an object, that there is none, or why it could not be found out.
struct finding_t {
    std::optional<object_brief_t> brief;
    std::string fault;  ///< empty unless the finding failed; then there is no brief

    friend bool operator==(const finding_t&, const finding_t&) = default;
};

/// Reading throws as the stream does, and `exc::CRuntimeExc` "Invalid message: %1." for a value out of its range.
void WriteFinding(io::binary_stream_tt& stream, const finding_t& finding);
finding_t ReadFinding(io::binary_stream_tt& stream);
void WriteTime(io::binary_stream_tt& stream, const util::SFileTime& time);
util::SFileTime ReadTime(io::binary_stream_tt& stream);
void WriteDigest(io::binary_stream_tt& stream, const digest::block_digest_t& digest);
digest::block_digest_t ReadDigest(io::binary_stream_tt& stream);

/// Throws `exc::CRuntimeExc` "Invalid message: %1.".
[[noreturn]] void ThrowInvalid(const std::string& fault);

/// While it lives, the channel has a deadline: the time that the longest message takes at the least rate, and the idle
/// time. So a peer that trickles single bytes does not hold a session for ever.
class message_limit_t {
  public:
    explicit message_limit_t(net::session_channel_t& channel);
    ~message_limit_t();
    message_limit_t(const message_limit_t&) = delete;
    message_limit_t& operator=(const message_limit_t&) = delete;

  private:
    net::session_channel_t& channel_;
};

}  // namespace agent::query
