// Marks what belongs to the library's interface; every other symbol is hidden.
#ifndef KESTRUNE_BASE_EXPORT_H
#define KESTRUNE_BASE_EXPORT_H

#ifndef KESTRUNE_API
#define KESTRUNE_API __attribute__((visibility("default")))
#endif

#endif
