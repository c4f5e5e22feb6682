#include "project/metadata/FileJobManager.hpp"

#include "host/FileUtils.hpp"

namespace project::metadata {

namespace {

/// The guards of one notification, released front to back.
class GuardList {
public:
    GuardList() = default;
    GuardList(const GuardList&) = delete;
    GuardList& operator=(const GuardList&) = delete;

    ~GuardList() {
        for (std::shared_ptr<ChangeGuard>& guard : guards_)
            guard.reset();
    }

    void hold(std::vector<std::shared_ptr<ChangeGuard>> guards) { guards_ = std::move(guards); }

private:
    std::vector<std::shared_ptr<ChangeGuard>> guards_;
};

}  // namespace

FileJobManager::FileJobManager() = default;

FileJobManager::~FileJobManager() = default;

boost::signals2::connection FileJobManager::onPreWrite(const WriteSignal::slot_type& slot) {
    return preWrite_.connect(slot);
}

boost::signals2::connection FileJobManager::onPostWrite(const WriteSignal::slot_type& slot) {
    return postWrite_.connect(slot);
}

void FileJobManager::process(std::vector<FileJob> jobs) {
    std::vector<host::Path> newFiles;
    std::vector<host::Path> modifiedFiles;
    std::vector<host::Path> deletedFiles;
    for (const FileJob& job : jobs) {
        deletedFiles.insert(deletedFiles.end(), job.getFilesToDelete().begin(), job.getFilesToDelete().end());
        for (const host::Path& file : job.getFilesToWrite())
            (host::FileUtils::existNoExcept(file) ? modifiedFiles : newFiles).push_back(file);
    }

    // Declared in this order so that the guards of the second notification go first, on every way out.
    GuardList preWriteGuards;
    GuardList postWriteGuards;
    preWriteGuards.hold(preWrite_(newFiles, modifiedFiles, deletedFiles));
    for (FileJob& job : jobs)
        job.run();
    postWriteGuards.hold(postWrite_(newFiles, modifiedFiles, deletedFiles));
}

}  // namespace project::metadata
