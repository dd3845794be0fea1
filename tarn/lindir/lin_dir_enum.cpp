#include "tarn/lindir/lin_dir_enum.h"

#include <stdexcept>

#include <boost/filesystem/operations.hpp>

#include "mirrowen/guid/guid.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/util/str.h"
#include "tarn/lindir/LinFileOp.h"

namespace tarn::lindir {

namespace {

// Walking needs directory descriptors, which this platform does not give.
[[noreturn]] void Refuse(const char* operation) {
    throw std::runtime_error(std::string("tarn/lindir/lin_dir_enum:") + operation +
                             " -- not supported on this platform");
}

}  // namespace

lin_dir_enum::lin_dir_enum() = default;

lin_dir_enum::~lin_dir_enum() = default;

std::string lin_dir_enum::StartEnum(const std::wstring& path, std::wstring& xml) {
    std::string id = guid::guid_t::CreateNew().ToAStr();
    std::string place = util::str_w2utf8(path);
    SEntryInfo info;
    struct stat attributes {};
    if (boost::filesystem::is_directory(boost::filesystem::status(place))) {
        const CLinDirHandle directory(CLinFileOp::OpenDirExc(place));
        CLinFileOp::fstatExc(CLinFileOp::GetDirDescExc(directory.GetHandle(), place), attributes, place);
    } else {
        const auto file = posix::posix_file_t::Open4Read(place);
        CLinFileOp::fstatExc(file->GetDescriptor(), attributes, place);
    }
    std::string name;
    splitPathToDirAndName(place, name);
    fillEntryInfo(info, attributes, place, name);

    const auto document = xml::TiXmlCreateDoc();
    xml::xml_holder_t element = createRootElement(document);
    createXmlContent(element, info);
    xml = convertUtf8ToUnicode(xml::TiXmlSerialize(*document));
    return id;
}

std::string lin_dir_enum::StartEnumRecursive(const std::wstring& path, std::wstring& mask, std::wstring& /*xml*/) {
    std::string id = guid::guid_t::CreateNew().ToAStr();
    BeginWalk(path, mask);
    return id;
}

void lin_dir_enum::RBegin(const std::wstring& path, const std::wstring& mask) {
    BeginWalk(path, mask);
}

void lin_dir_enum::BeginWalk(const std::wstring& path, const std::wstring& mask) {
    const std::string place = util::str_w2utf8(path);
    const auto handle = std::make_shared<CLinDirHandle>(CLinFileOp::OpenDirExc(place));
    mask_ = search_mask_t::FromWildcards(mask);
    levels_.push_back({handle, place});
    CLinFileOp::GetDirDescExc(handle->GetHandle(), place);
}

bool lin_dir_enum::GetNext(std::wstring& /*xml*/) {
    Refuse("GetNext");
}

bool lin_dir_enum::GetNextRecursive(std::wstring& /*xml*/) {
    Refuse("GetNextRecursive");
}

bool lin_dir_enum::RNext() {
    Refuse("RNext");
}

bool lin_dir_enum::IsDirEmpty(const std::wstring& /*path*/, bool /*subDirectoriesOnly*/) {
    Refuse("IsDirEmpty");
}

}  // namespace tarn::lindir
