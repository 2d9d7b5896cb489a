#include "base/ZSystem.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

namespace Ulmex {

bool ZRoomToWrite(const char* path, unsigned long long bytes, ZString* why) {
    std::string dir(path ? path : "");
    const size_t slash = dir.find_last_of('/');
    dir = slash == std::string::npos ? "." : slash == 0 ? "/" : dir.substr(0, slash);
    struct statvfs disk {};
    if (::statvfs(dir.c_str(), &disk) != 0) return true;
    const unsigned long long room = static_cast<unsigned long long>(disk.f_bavail) * disk.f_frsize;
    const unsigned long long needed = bytes + bytes / 64 + 64 * 1024;
    if (room >= needed) return true;
    if (why)
        *why = std::string(std::strerror(ENOSPC)) + ": about " + std::to_string(needed) + " bytes to write, " +
               std::to_string(room) + " free";
    return false;
}

bool ZFileExist(const char* path) {
    struct stat st;
    return path && ::stat(path, &st) == 0;
}

bool ZCreateDirectory(const char* path, unsigned int mode) {
    if (!path || !*path) return false;
    if (::mkdir(path, static_cast<mode_t>(mode)) == 0) return true;
    struct stat st;
    return errno == EEXIST && ::stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

namespace {

std::string clean(std::string v) {
    for (char& c : v)
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f' || c == ':' || c == '"')
            c = '_';
    return v.empty() ? std::string("unknown") : v;
}

void line(ZString& text, const char* key, const std::string& value) {
    text += "\t\"";
    text += key;
    text += "\":\"";
    text += clean(value);
    text += "\",\n";
}

} // namespace

void ZGetSystemInfo(ZString& text) {
    text.clear();
    struct utsname u;
    if (::uname(&u) == 0) {
        line(text, "SystemHostName", u.nodename);
        line(text, "SystemOS", std::string(u.sysname) + "-" + u.release);
        line(text, "SystemArch", u.machine);
    }
    const long cpus = ::sysconf(_SC_NPROCESSORS_ONLN);
    line(text, "SystemCPUs", std::to_string(cpus));
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0)
        line(text, "SystemMemoryMB", std::to_string(static_cast<long long>(pages) * pageSize / (1024 * 1024)));
    const char* user = ::getenv("USER");
    line(text, "SystemUser", user ? user : "");
    char stamp[32];
    const std::time_t now = std::time(nullptr);
    std::tm tmv;
    if (::gmtime_r(&now, &tmv) && std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H-%M-%SZ", &tmv) > 0)
        line(text, "SystemTimeUTC", stamp);
}

} // namespace Ulmex
