#include "agent/copy/remote_sink.h"

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "agent/net/listener.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "tests/support/fake_clock.h"

namespace agent::copy {
namespace {

constexpr std::uint32_t kEnd = 2;
constexpr std::uint32_t kExistingFiles = 9;

// An agent that knows nothing but the existence query, and keeps what it was asked.
class asked_agent_t {
  public:
    asked_agent_t()
        : listener_(Options(), [this](const auto& channel, const auto&) { Serve(channel); }),
          thread_([this](const std::stop_token& stop) { listener_.Run(stop); }) {}

    location_t Location() const { return {true, listener_.GetEndpoint(), "below"}; }

    std::vector<std::vector<std::string>> Asked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

    std::set<std::string> existing;

  private:
    static net::listener_options_t Options() {
        net::listener_options_t options;
        options.endpoint = {"127.0.0.1", 0};
        return options;
    }

    void Serve(const std::shared_ptr<net::session_channel_t>& channel) {
        io::binary_stream_tt stream(channel);
        io::acknowledge_protocol_t acks(stream);
        for (std::uint32_t command = stream.ReadU32(); command != kEnd; command = stream.ReadU32()) {
            ASSERT_EQ(command, kExistingFiles);
            std::vector<std::string> paths(stream.ReadU32());
            for (std::string& path : paths) {
                path = stream.ReadString();
            }
            acks.SendOk();
            Answer(stream, paths);
            const std::lock_guard lock(mutex_);
            asked_.push_back(std::move(paths));
        }
    }

    void Answer(io::binary_stream_tt& stream, std::vector<std::string> paths) const {
        std::erase_if(paths, [this](const std::string& path) { return existing.count(path) == 0; });
        stream.WriteU32(static_cast<std::uint32_t>(paths.size()));
        for (const std::string& path : paths) {
            stream.WriteString(path);
        }
    }

    std::mutex mutex_;
    std::vector<std::vector<std::string>> asked_;
    net::listener_t listener_;
    std::jthread thread_;
};

using questions_t = std::vector<std::vector<std::string>>;

TEST(RemoteSink, QuietSessionIsKeptAliveByAQueryOfNoPaths) {
    tests::fake_clock_t clock;
    asked_agent_t agent;
    const copy_options_t options;
    remote_sink_t sink(agent.Location(), options);
    sink.KeepAlive();
    EXPECT_EQ(agent.Asked(), questions_t{});  // it has just been opened
    clock.Advance(std::chrono::seconds(31));
    sink.KeepAlive();
    sink.KeepAlive();
    sink.IsDirectory("");  // the answer shows that the query before has been served
    EXPECT_EQ(agent.Asked()[0], std::vector<std::string>{});
    EXPECT_EQ(agent.Asked().size(), 2u);
}

TEST(RemoteSink, DirectoryIsToldByTheDotInIt) {
    asked_agent_t agent;
    agent.existing = {"below/sub/."};
    const copy_options_t options;
    remote_sink_t sink(agent.Location(), options);
    EXPECT_TRUE(sink.IsDirectory("sub"));
    sink.End();
    EXPECT_EQ(agent.Asked(), (questions_t{{"below/sub/."}}));
}

TEST(RemoteSink, OnlyADirectoryDoesNotStandInTheWayOfADirectory) {
    asked_agent_t agent;
    agent.existing = {"below/d", "below/d/.", "below/f"};
    const copy_options_t options;
    remote_sink_t sink(agent.Location(), options);
    EXPECT_EQ(sink.FindInTheWay({{"d", true}, {"new", false}}), std::nullopt);
    EXPECT_EQ(sink.FindInTheWay({{"d", true}, {"f", true}}), "f");
    EXPECT_EQ(sink.FindInTheWay({{"d", false}}), "d");
}

TEST(RemoteSink, PathsAreShownAsLocations) {
    asked_agent_t agent;
    const copy_options_t options;
    const remote_sink_t sink(agent.Location(), options);
    EXPECT_EQ(sink.Shown(""), ToString(agent.Location()));
    EXPECT_EQ(sink.Shown("a/b"), ToString(agent.Location()) + "/a/b");
}

}  // namespace
}  // namespace agent::copy
