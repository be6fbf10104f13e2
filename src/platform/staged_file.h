#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace kora {

// A file's new content, written and flushed to disk beside its target under a
// name that no other process can predict, and put in place by one rename. A
// caller that writes several files stages them all first, and renames only
// when every one was written: an error then leaves every target as it was.
class StagedFile {
  public:
    // Writes the content with mode 0644. error() tells whether it worked.
    StagedFile(std::filesystem::path target, std::string_view content);
    ~StagedFile();  // removes the staged copy unless it was put in place
    StagedFile(StagedFile&& other) noexcept;
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;
    StagedFile& operator=(StagedFile&&) = delete;

    const std::filesystem::path& target() const { return target_; }
    const std::error_code& error() const { return error_; }

    // Renames the staged copy over the target. False (and error() set) when
    // that failed, or when staging had failed.
    bool commit();

  private:
    std::filesystem::path target_;
    std::string staged_;  // empty once renamed or removed
    std::error_code error_;
};

}  // namespace kora
