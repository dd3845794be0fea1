#include "tests/contract/backend_contract.h"

namespace contract {

// A program that takes the suite in and instantiates nothing would pass by testing nothing; GoogleTest reports that.

std::shared_ptr<tarn::file_wstream_t> BackendContract::Create(const std::string& name, std::uint64_t length) {
    return Fs().CreateNewFile(Path(name), length, false);
}

void BackendContract::Put(const std::string& name, const std::string& content) {
    const auto stream = Create(name, content.size());
    WriteText(*stream, content);
    stream->Flush();
    stream->Close(nullptr);
}

std::string BackendContract::Get(const std::string& name) {
    const auto stream = Open(name);
    const std::string content = ReadText(*stream, stream->GetFileSize());
    stream->FinishRead();
    return content;
}

}  // namespace contract
