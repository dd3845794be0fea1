#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "agent/copy/content_hasher.h"
#include "agent/copy/copier.h"
#include "agent/copy/copy_source.h"
#include "agent/copy/fake_sink.h"
#include "agent/tree/opened_place.h"
#include "tests/support/temp_dir.h"

namespace tests {

using texts_t = std::vector<std::string>;

/// Hears what a copy tells.
class decisions_t final : public agent::copy::copy_observer_t {
  public:
    void OnBytes(std::uint64_t count) override {
        bytes += count;
        if (onBytes) {
            onBytes();
        }
    }
    void OnItemDone(const std::string&) override { ++done; }
    void OnBytesSpared(std::uint64_t bytesSpared) override { spared += bytesSpared; }
    void OnDecision(const std::string& action, const std::string& path) override {
        texts.push_back(action + " " + std::filesystem::path(path).filename().string());
    }
    std::function<void()> onBytes;
    int done = 0;
    std::uint64_t bytes = 0;
    std::uint64_t spared = 0;
    texts_t texts;
};

/// A directory "top" that is copied to a place in memory.
class copier_fixture_t : public ::testing::Test {
  protected:
    copier_fixture_t() {
        options.recursive = true;
        std::filesystem::create_directory(At("top"));
    }

    std::string At(const std::string& name) const { return dir_ / name; }
    void Write(const std::string& name, const std::string& text = "x") const { std::ofstream(At(name)) << text; }
    void Link(const std::string& first, const std::string& second) const {
        std::filesystem::create_hard_link(At(first), At(second));
    }

    agent::copy::copy_report_t Run(agent::copy::gathering_t gathering) {
        agent::copy::copier_t copier(options, sink, observer, gathering);
        const agent::copy::copy_job_t job{agent::copy::OpenCopySource(At("top"), options), "top", false};
        copier.Run(job);
        return copier.Finish();
    }

    // The far end has just what the source has.
    void LayDown(const std::string& name) {
        sink.there[name] = *agent::Examine(*agent::OpenPlace(dir_.path() + "/.").root, name);
    }

    texts_t Failed(const agent::copy::copy_report_t& report) const {
        texts_t texts;
        for (const agent::copy::copy_note_t& note : report.failed) {
            texts.push_back(std::filesystem::path(note.path).filename().string() + ": " + note.text);
        }
        return texts;
    }

    static agent::query::content_digest_t DigestOf(const std::string& text) {
        return {text.size(), digest::ComputeBlockDigest(std::as_bytes(std::span(text)))};
    }

    temp_dir_t dir_;
    agent::copy::copy_options_t options;
    agent::copy::fake_sink_t sink;
    decisions_t observer;
};

}  // namespace tests
