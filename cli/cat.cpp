#include <algorithm>
#include <vector>

#include "agent/copy/content_pieces.h"
#include "agent/path/location.h"
#include "agent/send/send_client.h"
#include "cli/exit_code.h"
#include "cli/maps.h"
#include "cli/plaintext.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/fs_operations.h"

namespace cli {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

void write_zeroes(std::uint64_t count) {
    const std::vector<char> zeroes(std::min<std::uint64_t>(count, kPiece));
    while (count != 0) {
        const std::uint64_t part = std::min<std::uint64_t>(count, zeroes.size());
        WriteOut({zeroes.data(), part});
        count -= part;
    }
}

void print_area(const io::area::IArea& area) {
    for (const agent::copy::content_piece_t& piece : agent::copy::PiecesOf(area)) {
        if (piece.data == nullptr) {
            write_zeroes(piece.size);
        } else {
            WriteOut({reinterpret_cast<const char*>(piece.data), piece.size});
        }
    }
}

void print_remote(const agent::location_t& location) {
    agent::send::send_client_t client(location.endpoint, {});
    agent::send::send_request_t request;
    request.path = location.path.empty() ? agent::send::kRootName : location.path;
    request.compression = io::block::EBufTransformType::eLz4;
    const auto file = client.Open(request);
    if (file->GetAnnounced().item.kind != agent::EItemKind::eFile) {
        throw exc::CRuntimeExc("[%1] is not a regular file.", ToString(location));
    }
    while (const auto area = file->ReadNext()) {
        print_area(*area);
    }
}

void print_local(const std::string& path) {
    const auto stream = tarn::fs_operations_t::RecognizeFsPath(path, 0)->OpenFile4Read(path);
    std::vector<char> piece(kPiece);
    for (std::uint64_t left = stream->GetFileSize(); left != 0;) {
        const std::uint64_t got = stream->ReadExc(piece.data(), std::min<std::uint64_t>(left, piece.size()));
        if (got == 0) {
            break;
        }
        WriteOut({piece.data(), static_cast<std::size_t>(got)});
        left -= got;
    }
    stream->FinishRead();
}

}  // namespace

int RunCat(const cat_args_t& args) {
    if (const agent::location_t location = agent::ParseLocation(args.path); location.isRemote) {
        if (!MayTalkPlainly("cat", args.plaintext)) {
            return kWrongUsage;
        }
        print_remote(location);
        return kDone;
    }
    ApplyMaps(args.maps);
    print_local(args.path);
    return kDone;
}

}  // namespace cli
