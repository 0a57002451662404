// QueueFiles.cpp - archive copies and held files
//
// See QueueFiles.h
#include "service/QueueFiles.h"

#include <cstring>
#include <string>

#include "foundation/SystemHelpers.h"
#include "platform/Files.h"

namespace {

bool CopyDurably(const CNvcString& from, const CNvcString& to) {
    return platform::CopyFileDurably(from.GetData(), to.GetData(), true) == 0;
}

// A rename whose folder could not be flushed afterwards has still taken
// effect: the file goes by its new name and must not be renamed again.
bool Renamed(const char* from, const char* to) {
    if (platform::RenameFileNoReplace(from, to) == 0) return true;
    return FileExists(from) == 0 && FileExists(to) != 0;
}

CNvcString& FolderOf(const char* path, CNvcString& out) {
    const char* slash = std::strrchr(path, '/');
    if (slash == nullptr) return out.Clear();
    return out.Assign(std::string(path, static_cast<size_t>(slash - path) + 1).c_str());
}

}  // namespace

CNvcString& BaseNameOf(const char* path, CNvcString& out) {
    if (path == nullptr) return out.Clear();
    const char* slash = std::strrchr(path, '/');
    return out.Assign(slash != nullptr ? slash + 1 : path);
}

CNvcString& WithExtension(const char* name, const char* extension, CNvcString& out) {
    const char* dot = std::strrchr(name, '.');
    const size_t keep = dot != nullptr ? static_cast<size_t>(dot - name) : std::strlen(name);
    return out.Assign(std::string(name, keep).c_str()).Append(extension);
}

bool ArchiveQueueFile(const char* path, const char* directory, CNvcString& storedName) {
    const CNvcString source = path;
    CNvcString base;
    BaseNameOf(path, base);
    CNvcString destination = directory;
    destination.AppendIfMissing('/');
    CNvcString archiveName;
    destination.Append(WithExtension(base.GetData(), ".hst", archiveName));

    bool copied = CopyDurably(source, destination);
    if (!copied) {
        MakeUniqueFileName(directory, "", ".mim", destination);
        copied = CopyDurably(source, destination);
    }
    BaseNameOf(destination.GetData(), storedName);
    return copied;
}

bool HoldQueueFile(const char* path, CNvcString& heldPath) {
    CNvcString folder;
    FolderOf(path, folder);
    CNvcString base;
    CNvcString heldName;
    WithExtension(BaseNameOf(path, base).GetData(), ".held", heldName);
    heldPath = folder;
    heldPath.Append(heldName);
    if (Renamed(path, heldPath.GetData())) return true;
    MakeUniqueFileName(folder.GetData(), "", ".held", heldPath);
    return Renamed(path, heldPath.GetData());
}
