#pragma once

#include <filesystem>
#include <optional>

#include "platform/property_list.h"

namespace kora {

// Preference files inside users' homes. A home belongs to its user, so each
// file is read and written with the rights of the home's owner, never as root
// through a path that user controls.
class UserPreferences {
  public:
    virtual ~UserPreferences() = default;

    // The dictionary in `file` (a path inside `home`), or none when it cannot
    // be read as that user, is not a regular file, is a symbolic link, or is not
    // a property-list dictionary.
    virtual std::optional<PlistDictionary> readDictionary(const std::filesystem::path& home,
                                                          const std::filesystem::path& file) = 0;

    // Replaces the content of `file` with `dictionary` as an XML property list,
    // as the home's owner. The file keeps its owner and mode; a symbolic link is
    // not followed. False when nothing was written.
    virtual bool writeDictionary(const std::filesystem::path& home, const std::filesystem::path& file,
                                 const PlistDictionary& dictionary) = 0;
};

// Does each access in a forked child that has dropped to the home owner's uid,
// gid and groups, and opens the file with O_NOFOLLOW.
class LiveUserPreferences : public UserPreferences {
  public:
    std::optional<PlistDictionary> readDictionary(const std::filesystem::path& home,
                                                  const std::filesystem::path& file) override;
    bool writeDictionary(const std::filesystem::path& home, const std::filesystem::path& file,
                         const PlistDictionary& dictionary) override;
};

}  // namespace kora
