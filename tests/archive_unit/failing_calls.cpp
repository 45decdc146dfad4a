#include "failing_calls.h"

#include <dirent.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <optional>

namespace {

struct Failure {
  int error;
  int after;
  bool is_everywhere;
  bool is_here;  // in the process `pid`, or everywhere but there
  pid_t pid;
};
std::map<std::string, Failure> failures;
bool are_types_hidden = false;
std::optional<int> left_until_full;  // calls of fstatvfs

/// True, with errno, when this call of `function` is to fail.
bool Fails(const char* function) {
  const auto failure = failures.find(function);
  if (failure == failures.end() ||
      (!failure->second.is_everywhere &&
       failure->second.is_here != (failure->second.pid == getpid())) ||
      failure->second.after-- > 0) {
    return false;
  }
  errno = failure->second.error;
  failures.erase(failure);
  return true;
}

}  // namespace

void FailOnce(const std::string& function, int error, int after) {
  failures[function] = {error, after, true, true, 0};
}

void FailOnceHere(const std::string& function, int error, int after) {
  failures[function] = {error, after, false, true, getpid()};
}

void FailOnceInWorkers(const std::string& function, int error, int after) {
  failures[function] = {error, after, false, false, getpid()};
}

void HideEntryTypes() {
  are_types_hidden = true;
}

void FillDisk(int after) {
  left_until_full = after;
}

void FailNothing() {
  failures.clear();
  are_types_hidden = false;
  left_until_full.reset();
}

extern "C" {

pid_t __real_fork();
pid_t __real_getppid();
int __real_pipe2(int* ends, int flags);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __real_write(int descriptor, const void* buffer, size_t size);
off_t __real_lseek(int descriptor, off_t offset, int from);
int __real_fsync(int descriptor);
int __real_openat(int at, const char* path, int flags, mode_t mode);
DIR* __real_fdopendir(int descriptor);
dirent* __real_readdir(DIR* stream);
int __real_mkdirat(int at, const char* path, mode_t mode);
int __real_renameat(int from_at, const char* from, int to_at, const char* to);
int __real_unlinkat(int at, const char* path, int flags);
int __real_fstatvfs(int descriptor, struct statvfs* status);
int __real_memfd_create(const char* name, unsigned flags);
int __real_fchdir(int descriptor);
int __real_fchmod(int descriptor, mode_t mode);

pid_t __wrap_fork() {
  return Fails("fork") ? -1 : __real_fork();
}

/// As if the parent were gone, when it fails: it cannot in earnest.
pid_t __wrap_getppid() {
  return Fails("getppid") ? 1 : __real_getppid();
}

int __wrap_pipe2(int* ends, int flags) {
  return Fails("pipe2") ? -1 : __real_pipe2(ends, flags);
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  return Fails("read") ? -1 : __real_read(descriptor, buffer, size);
}

ssize_t __wrap_write(int descriptor, const void* buffer, size_t size) {
  return Fails("write") ? -1 : __real_write(descriptor, buffer, size);
}

off_t __wrap_lseek(int descriptor, off_t offset, int from) {
  return Fails("lseek") ? -1 : __real_lseek(descriptor, offset, from);
}

int __wrap_fsync(int descriptor) {
  return Fails("fsync") ? -1 : __real_fsync(descriptor);
}

int __wrap_openat(int at, const char* path, int flags, mode_t mode) {
  return Fails("openat") ? -1 : __real_openat(at, path, flags, mode);
}

DIR* __wrap_fdopendir(int descriptor) {
  return Fails("fdopendir") ? nullptr : __real_fdopendir(descriptor);
}

dirent* __wrap_readdir(DIR* stream) {
  dirent* const entry = Fails("readdir") ? nullptr : __real_readdir(stream);
  if (entry != nullptr && are_types_hidden) {
    entry->d_type = DT_UNKNOWN;
  }
  return entry;
}

int __wrap_mkdirat(int at, const char* path, mode_t mode) {
  return Fails("mkdirat") ? -1 : __real_mkdirat(at, path, mode);
}

int __wrap_renameat(int from_at, const char* from, int to_at, const char* to) {
  return Fails("renameat") ? -1 : __real_renameat(from_at, from, to_at, to);
}

int __wrap_unlinkat(int at, const char* path, int flags) {
  return Fails("unlinkat") ? -1 : __real_unlinkat(at, path, flags);
}

int __wrap_fstatvfs(int descriptor, struct statvfs* status) {
  if (Fails("fstatvfs")) {
    return -1;
  }
  const int result = __real_fstatvfs(descriptor, status);
  if (left_until_full && (*left_until_full)-- <= 0) {
    status->f_bavail = 0;
  }
  return result;
}

int __wrap_memfd_create(const char* name, unsigned flags) {
  return Fails("memfd_create") ? -1 : __real_memfd_create(name, flags);
}

int __wrap_fchdir(int descriptor) {
  return Fails("fchdir") ? -1 : __real_fchdir(descriptor);
}

int __wrap_fchmod(int descriptor, mode_t mode) {
  return Fails("fchmod") ? -1 : __real_fchmod(descriptor, mode);
}

}  // extern "C"
