#pragma once

#include <string>
#include <vector>

namespace contract {

/// What the interface offers and a backend may lack. The suite tests each one both ways: with it, that it works;
/// without it, that the backend refuses, or does the lesser thing that stands here in brackets.
enum class EFeature {
    eDirectories,      ///< directories can be made
    eRename,           ///< RenameFile, and IsRenameSupported says so
    eUpdate,           ///< OpenFile4Write
    ePresize,          ///< a new file has its length at once [it grows as it is written]
    eKeepsExisting,    ///< creating without overwrite spares what is there [it is replaced]
    eDeleteTellsMiss,  ///< deleting what is not there throws [nothing happens]
    eReadSeek,         ///< SeekTo of a read stream
    eWriteSeek,        ///< SeekTo of a write stream
    eShortReadThrows,  ///< a read past the end throws [it returns what there is, then 0]
    eCloses,           ///< finished and closed streams refuse to go on [they go on]
    eAttributes,       ///< GetFileMetadata describes the file [the record is unset, also for a missing one]
    eSetAttributes,    ///< SetFileMetadata
    eLinks,            ///< CreateSymLink and TryGetSymLinkInfo
    eBackupMedia,      ///< GetBackupMedia
    eExclusiveRead,    ///< OpenFile4ReadWithoutWriteShare
};

/// One way in which a backend differs from the full interface.
struct deviation_t {
    EFeature feature;
    std::string refusal;  ///< message of the refusal, "%1" and "%2" standing for the paths; empty for a lesser thing
    std::string reason;   ///< why the backend differs; printed beside a failure
};

/// A backend's answers where the interface leaves them open.
struct traits_t {
    std::string diskRefusal;  ///< message of OpenDisk4Read
    std::string openFailure;  ///< message of OpenFile4Read for a missing file
    std::vector<deviation_t> deviations;

    /// The deviation that takes `feature` away, or null when the backend has it.
    const deviation_t* Without(EFeature feature) const {
        for (const deviation_t& deviation : deviations) {
            if (deviation.feature == feature) {
                return &deviation;
            }
        }
        return nullptr;
    }
};

}  // namespace contract
