// Sends files of a copied tree through memory slots and back, and reads files of the copy through a restore view, where
// they have the paths of the original. Everything that comes back is compared with the original, byte for byte.
//
//     memory_and_view ORIGINAL COPY SCRATCH
//
// ORIGINAL is a directory, COPY holds a copy of it, SCRATCH is an empty directory for what comes back from memory.
// Prints one line a step: its name, files, bytes, seconds and "same" or "DIFFERS", with tabs in between.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/fs_operations.h"
#include "tarn/tarn_context.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxFiles = 200;
constexpr std::uintmax_t kMaxBytes = 8U << 20;
constexpr std::size_t kPiece = 256U << 10;

std::shared_ptr<tarn::fs_operations_t> backend(const std::string& path) {
    return tarn::fs_operations_t::RecognizeFsPath(path, 0);
}

/// Hands the file at `path`, a path of any form, to `take` piece by piece and returns its size.
std::uint64_t read_file(const std::string& path, const std::function<void(const char*, std::size_t)>& take) {
    const auto stream = backend(path)->OpenFile4Read(path);
    const std::uint64_t size = stream->GetFileSize();
    std::vector<char> piece(kPiece);
    for (std::uint64_t left = size; left != 0;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kPiece));
        if (stream->ReadExc(piece.data(), wanted) != wanted) {
            break;
        }
        take(piece.data(), wanted);
        left -= wanted;
    }
    stream->FinishRead();
    return size;
}

std::string content(const std::string& path) {
    std::string bytes;
    read_file(path, [&](const char* data, std::size_t size) { bytes.append(data, size); });
    return bytes;
}

/// Copies between two paths of any form.
std::uint64_t copy_file(const std::string& from, const std::string& to) {
    const auto out = backend(to)->CreateNewFile(to, 0, true);
    const std::uint64_t size =
        read_file(from, [&](const char* data, std::size_t count) { out->WriteExc(data, count); });
    out->Close({});
    return size;
}

/// Up to kMaxFiles regular files of moderate size, spread evenly over the tree; paths below `root`.
std::vector<std::string> choose_files(const fs::path& root) {
    std::vector<std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied)) {
        if (entry.is_regular_file() && !entry.is_symlink() && entry.file_size() <= kMaxBytes) {
            all.push_back(entry.path().lexically_relative(root).string());
        }
    }
    std::sort(all.begin(), all.end());
    std::vector<std::string> chosen;
    const std::size_t count = std::min(all.size(), kMaxFiles);
    for (std::size_t i = 0; i < count; ++i) {
        chosen.push_back(all[i * all.size() / count]);
    }
    return chosen;
}

/// Runs `step` for every file, which returns the bytes it moved and throws when something differs; prints the line.
bool run_step(const char* name, const std::vector<std::string>& files,
              const std::function<std::uint64_t(const std::string&)>& step) {
    const auto begin = std::chrono::steady_clock::now();
    std::uint64_t bytes = 0;
    bool same = true;
    for (const std::string& file : files) {
        try {
            bytes += step(file);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s: [%s]: %s\n", name, file.c_str(), error.what());
            same = false;
        }
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%s\t%zu\t%llu\t%.3f\t%s\n", name, files.size(), static_cast<unsigned long long>(bytes), time.count(),
                same ? "same" : "DIFFERS");
    return same;
}

void expect_same(const std::string& original, const std::string& other) {
    if (content(original) != content(other)) {
        throw std::runtime_error("[" + other + "] differs from [" + original + "]");
    }
}

/// Copy -> memory slot -> scratch file, which must equal the original.
bool through_memory(const std::vector<std::string>& files, const fs::path& original, const fs::path& copy,
                    const fs::path& scratch) {
    return run_step("memory slots", files, [&](const std::string& file) {
        const std::string slot = "MemFs://" + file;
        const std::string back = (scratch / "back").string();
        copy_file((copy / file).string(), slot);
        const std::uint64_t size = copy_file(slot, back);
        backend(slot)->DeleteFile(slot);
        expect_same((original / file).string(), back);
        return size;
    });
}

/// The view shows the copy at the path of the original.
bool through_view(const std::vector<std::string>& files, const fs::path& original, const fs::path& copy) {
    tarn::CTarnContext::Instance().GetFLRContext()->AddMappingRule(copy.string(), original.string());
    return run_step("restore view", files, [&](const std::string& file) {
        const std::string path = (original / file).string();
        const std::string shown = content("FlrFS://" + path);
        if (shown != content(path)) {
            throw std::runtime_error("the view's file differs from [" + path + "]");
        }
        return std::uint64_t{shown.size()};
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: memory_and_view ORIGINAL COPY SCRATCH\n");
        return 2;
    }
    try {
        const fs::path original = fs::canonical(argv[1]);
        const fs::path copy = fs::canonical(argv[2]);
        const std::vector<std::string> files = choose_files(copy);
        const bool memory = through_memory(files, original, copy, argv[3]);
        const bool view = through_view(files, original, copy);
        return memory && view ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "memory_and_view: %s\n", error.what());
        return 1;
    }
}
