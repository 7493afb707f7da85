// What operations tell on standard output while they run, for whoever asked for it.
#ifndef KESTRUNE_CORE_TRACE_H
#define KESTRUNE_CORE_TRACE_H

#include <cstdarg>
#include <cstdio>

namespace kestrune {

// printf while it is on, else nothing. The lines are fixed: operators read them.
class Trace {
 public:
  explicit Trace(bool is_on) : is_on_(is_on) {}

  __attribute__((format(printf, 2, 3))) void Print(const char* format, ...) const {
    if (!is_on_) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
  }

 private:
  const bool is_on_;
};

// For the entry points at which 1 alone is a yes.
inline Trace TraceWhenOne(long verbose) {
  return Trace(verbose == 1);
}

}  // namespace kestrune

#endif
