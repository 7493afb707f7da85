// The application's own, of the same name as one of the library's.
#pragma once
struct Object {
  int status = 0;
};
