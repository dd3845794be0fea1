// Compares the frame of blob files with what it is made of: LZ4's block functions and one pass of CRC-32C, over buffers
// that were made before, and for files one open, write or read, and close.
//
// Usage: blob_frame_bench [ROUNDS]     (default 15)
//
// The payloads have 4 MiB, as the agent's batches, and 30 MiB, as the largest blob files; half of each can be
// compressed, and they are the same in every run. Both sides take turns. Their fastest rounds count, which other work
// of the machine disturbed least; a ratio below 1 is what the frame costs. Files lie in TMPDIR or /tmp and are not
// synced. Exits with 1 when the two sides disagree about a byte.
#include <fcntl.h>
#include <lz4.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "mirrowen/util/crc32c.h"
#include "tarn/blobfs/lz4.h"

namespace {

using buffer_t = cnt::array_t<char>;
using tarn::blobfs::BlockHeader;
using tarn::blobfs::CLz4;

constexpr std::size_t kStretch = std::size_t{64} << 10;

// Stretches of text and of noise in turn.
std::shared_ptr<buffer_t> MakePayload(std::size_t size) {
    std::mt19937 random(20211);
    std::vector<std::string> words(500);
    for (std::string& word : words) {
        word.resize(3 + random() % 8);
        std::generate(word.begin(), word.end(), [&] { return static_cast<char>('a' + random() % 26); });
        word.back() = ' ';
    }
    auto payload = std::make_shared<buffer_t>();
    payload->reserve(size + kStretch);
    while (payload->size() < size) {
        const bool isText = payload->size() / kStretch % 2 == 0;
        const std::size_t end = (payload->size() / kStretch + 1) * kStretch;
        while (payload->size() < end) {
            const std::string& word = words[random() % words.size()];
            const std::string noise(1, static_cast<char>(random()));
            const std::string& piece = isText ? word : noise;
            payload->insert(payload->end(), piece.begin(), piece.end());
        }
        payload->resize(end);
    }
    payload->resize(size);
    return payload;
}

void Require(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(what);
    }
}

// The frame's parts, used by hand.
class plain_t {
  public:
    plain_t(const buffer_t& payload, std::string path)
        : payload_(payload),
          path_(std::move(path)),
          block_(static_cast<std::size_t>(LZ4_compressBound(static_cast<int>(payload.size())))),
          result_(payload.size()) {}

    void Pack() {
        header_[0] = 0xF800000F;
        header_[1] = util::crc32c(0, payload_.data(), payload_.size());
        header_[2] = static_cast<std::uint32_t>(payload_.size());
        length_ = LZ4_compress_default(payload_.data(), block_.data(), static_cast<int>(payload_.size()),
                                       static_cast<int>(block_.size()));
        Require(length_ > 0, "LZ4 could not pack");
    }

    void Unpack() {
        const int length =
            LZ4_decompress_safe(block_.data(), result_.data(), length_, static_cast<int>(result_.size()));
        Require(length == static_cast<int>(result_.size()), "LZ4 could not unpack");
        Require(util::crc32c(0, result_.data(), result_.size()) == header_[1], "the checksum differs");
    }

    void WriteToFile() {
        Pack();
        const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const auto length = static_cast<ssize_t>(length_);
        Require(::write(fd, header_, sizeof header_) == sizeof header_, "the header was not written");
        Require(::write(fd, block_.data(), static_cast<std::size_t>(length_)) == length, "the block was not written");
        ::close(fd);
    }

    void ReadFromFile() {
        const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        Require(::read(fd, header_, sizeof header_) == sizeof header_, "the header was not read");
        length_ = static_cast<int>(::read(fd, block_.data(), block_.size()));
        ::close(fd);
        Unpack();
    }

    bool IsBlock(const buffer_t& other) const {
        return other.size() == static_cast<std::size_t>(length_) &&
               std::equal(other.begin(), other.end(), block_.begin());
    }
    bool IsResult(const buffer_t& other) const { return other == result_; }

  private:
    const buffer_t& payload_;
    const std::string path_;
    std::uint32_t header_[3] = {};
    buffer_t block_;
    int length_ = 0;
    buffer_t result_;
};

// The same through the library.
struct frame_t {
    std::shared_ptr<buffer_t> payload;
    std::string path;
    BlockHeader header{};
    std::shared_ptr<buffer_t> block = nullptr;
    std::shared_ptr<buffer_t> result = nullptr;

    void Pack() { CLz4::compress(payload, block, header); }
    void Unpack() { CLz4::decompress(header, block, result); }
    void WriteToFile() const { CLz4::compressToFile(payload, path); }
    void ReadFromFile() { result = CLz4::decompressFromFile(path); }
};

double Seconds(const std::function<void()>& call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Prints one line of the table.
void Compare(const char* title, std::size_t size, int rounds, const std::function<void()>& plain,
             const std::function<void()>& frame) {
    std::vector<double> plainTimes;
    std::vector<double> frameTimes;
    for (int round = 0; round != rounds; ++round) {
        plainTimes.push_back(Seconds(plain));
        frameTimes.push_back(Seconds(frame));
    }
    const double plainTime = *std::min_element(plainTimes.begin(), plainTimes.end());
    const double frameTime = *std::min_element(frameTimes.begin(), frameTimes.end());
    const double megabytes = static_cast<double>(size) / 1e6;
    std::printf("  %-22s%12.0f%12.0f%10.2f\n", title, megabytes / plainTime, megabytes / frameTime,
                plainTime / frameTime);
}

void Run(std::size_t size, int rounds, const std::string& folder) {
    const auto payload = MakePayload(size);
    plain_t plain(*payload, folder + "/plain");
    frame_t frame{payload, folder + "/frame"};
    std::printf("%zu MiB, the fastest of %d rounds\n  %-22s%12s%12s%10s\n", size >> 20, rounds, "MB/s", "LZ4 + CRC",
                "frame", "ratio");
    Compare(
        "pack in memory", size, rounds, [&] { plain.Pack(); }, [&] { frame.Pack(); });
    Require(plain.IsBlock(*frame.block), "the blocks differ");
    Compare(
        "unpack in memory", size, rounds, [&] { plain.Unpack(); }, [&] { frame.Unpack(); });
    Require(plain.IsResult(*frame.result) && *frame.result == *payload, "the payloads differ");
    Compare(
        "pack to a file", size, rounds, [&] { plain.WriteToFile(); }, [&] { frame.WriteToFile(); });
    Compare(
        "unpack from a file", size, rounds, [&] { plain.ReadFromFile(); }, [&] { frame.ReadFromFile(); });
    Require(plain.IsResult(*frame.result) && *frame.result == *payload, "the payloads from files differ");
}

}  // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 15;
    const char* const usual = std::getenv("TMPDIR");
    std::string folder = std::string(usual != nullptr ? usual : "/tmp") + "/tarn-bench.XXXXXX";
    int status = 0;
    try {
        Require(::mkdtemp(folder.data()) != nullptr, "no temporary folder");
        Run(std::size_t{4} << 20, rounds, folder);
        Run(std::size_t{30} << 20, rounds, folder);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "blob_frame_bench: %s\n", error.what());
        status = 1;
    }
    ::unlink((folder + "/plain").c_str());
    ::unlink((folder + "/frame").c_str());
    ::rmdir(folder.c_str());
    return status;
}
