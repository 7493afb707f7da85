// The platform's interface: without a platform there are no files.
#include "core/file_ref.h"

#include <cstring>

#include "core/result.h"

using namespace kestrune;

int TypV2FileRef::InitCreate() {
  return file::kUnavailable;
}
int TypV2FileRef::Kill() {
  return file::kUnavailable;
}
int TypV2FileRef::OpenDF(int /*mode*/) {
  return file::kUnavailable;
}
int TypV2FileRef::GetLength(unsigned long long* /*length*/) {
  return file::kUnavailable;
}
int TypV2FileRef::SetFilePos(unsigned long long /*position*/) {
  return file::kUnavailable;
}
int TypV2FileRef::SetEOF(unsigned long long /*length*/) {
  return file::kUnavailable;
}
int TypV2FileRef::Read(void* /*buffer*/, unsigned long long /*count*/) {
  return file::kUnavailable;
}
int TypV2FileRef::Write(const void* /*buffer*/, unsigned long long /*count*/) {
  return file::kUnavailable;
}
int TypV2FileRef::CloseDF() {
  return file::kUnavailable;
}
int TypV2FileRef::GetDF(unsigned char** /*data*/, unsigned long long* /*length*/) {
  return file::kUnavailable;
}
int TypV2FileRef::Exists() {
  return file::kUnavailable;
}
int TypV2FileRef::Delete() {
  return file::kUnavailable;
}
int TypV2FileRef::IsOpend() {
  return file::kUnavailable;
}
int TypV2FileRef::SetFileName(const char* /*path*/) {
  return file::kUnavailable;
}

void TypV2FileRef::GetFullPathFilename(char* path) {
  *path = 0;
}
void TypV2FileRef::GetPathSeperator(char* separator) {
  *separator = 0;
}
int TypV2FileRef::OSToPrivateError(std::int16_t status) {
  return status;
}

void TypV2FileRef::GetFileNameWithoutPath(char* name) {
  char path[limits::kPath + 1] = {};
  char separator = 0;
  GetFullPathFilename(path);
  GetPathSeperator(&separator);
  const std::size_t length = std::strlen(path);
  std::size_t begin = length;
  // A separator in last place is passed over: what it closes is the name, with it.
  while (begin > 0 && (path[begin - 1] != separator || begin == length)) --begin;
  std::memcpy(name, path + begin, length - begin + 1);
}
