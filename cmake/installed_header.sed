# A header of a class as it is installed: found below <kestrune/>, and clear about what it needs, once.
1i\
#if !defined(__cplusplus) || __cplusplus < 202002L\
#ifndef KESTRUNE_CXX20_WANTED\
#define KESTRUNE_CXX20_WANTED\
#error "The classes of kestrune need C++20 (-std=c++20). In C and older C++ include <kestrune/kestrune.h> alone."\
#endif\
#else
s:^#include "(.*)":#include <kestrune/\1>:
$a\
#endif
