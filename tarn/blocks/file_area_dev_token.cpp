#include "tarn/blocks/file_area_dev_token.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"

namespace tarn {

CFileAreaDevToken::CFileAreaDevToken(std::string path) : path_(std::move(path)) {}

CFileAreaDevToken::~CFileAreaDevToken() = default;

std::string CFileAreaDevToken::GetTypeString() {
    return "file";
}

std::string CFileAreaDevToken::GetType() {
    return GetTypeString();
}

std::string CFileAreaDevToken::Path4Log() {
    return path_;
}

void CFileAreaDevToken::Serial(io::binary_stream_tt& stream) const {
    try {
        stream.WriteString(path_);
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to serialize moniker for file reader. File path: '%1'.", path_);
    }
}

std::shared_ptr<io::area::IAreaDevToken> CFileAreaDevToken::Unserial(io::binary_stream_tt& stream) {
    try {
        const std::uint32_t length = stream.ReadU32();
        // One byte beyond the limit is asked for, so that a stream that ends early is told apart from a long path.
        std::string path = stream.ReadBytes(std::min(length, kMaxPathBytes + 1));
        if (length > kMaxPathBytes) {
            throw exc::CRuntimeExc("Path of [%1] bytes is longer than the allowed [%2].", length, kMaxPathBytes);
        }
        return std::make_shared<CFileAreaDevToken>(std::move(path));
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to de-serialize moniker of file reader object.");
    }
}

}  // namespace tarn
