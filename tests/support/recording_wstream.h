#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tarn/file_wstream.h"

namespace tests {

/// A write stream that keeps what it is told: the calls as texts and the bytes that the file would hold.
class recording_wstream_t final : public tarn::file_wstream_t {
  public:
    explicit recording_wstream_t(std::string path = "/target", std::string content = {})
        : path_(std::move(path)), content_(std::move(content)) {}

    void SeekTo(std::uint64_t offset) override {
        Note("SeekTo " + std::to_string(offset));
        position_ = offset;
    }

    std::uint64_t WriteExc(const void* buffer, std::uint64_t count) override {
        const std::string bytes(static_cast<const char*>(buffer), static_cast<std::size_t>(count));
        Note("WriteExc " + std::to_string(count));
        Put(bytes);
        return count;
    }

    std::uint64_t WriteZeroes(std::uint64_t count) override {
        Note("WriteZeroes " + std::to_string(count));
        Put(std::string(static_cast<std::size_t>(count), '\0'));
        return count;
    }

    std::string GetPath() override { return path_; }
    void Flush() override { Note("Flush"); }
    void Close(std::shared_ptr<synch::completion_port_t> port) override {
        Note(port ? "Close with port" : "Close");
        port_ = std::move(port);
    }

    /// The next call whose text begins with `call` throws `std::runtime_error(text)`.
    void FailAt(std::string call, std::string text) { failure_ = {std::move(call), std::move(text)}; }

    const std::vector<std::string>& Calls() const { return calls_; }
    const std::string& Content() const { return content_; }
    const std::shared_ptr<synch::completion_port_t>& Port() const { return port_; }

  private:
    void Note(const std::string& call) {
        calls_.push_back(call);
        if (!failure_.first.empty() && call.starts_with(failure_.first)) {
            throw std::runtime_error(failure_.second);
        }
    }

    void Put(const std::string& bytes) {
        const auto position = static_cast<std::size_t>(position_);
        if (content_.size() < position + bytes.size()) {
            content_.resize(position + bytes.size());
        }
        content_.replace(position, bytes.size(), bytes);
        position_ += bytes.size();
    }

    std::string path_;
    std::string content_;
    std::uint64_t position_ = 0;
    std::vector<std::string> calls_;
    std::pair<std::string, std::string> failure_;
    std::shared_ptr<synch::completion_port_t> port_;
};

}  // namespace tests
