// Symbol visibility: the library is built with hidden visibility, and only
// declarations marked VORLITH_API are exported from libVorlith.so.
#ifndef VORLITH_EXPORT_H_
#define VORLITH_EXPORT_H_

#define VORLITH_API __attribute__((visibility("default")))

#endif  // VORLITH_EXPORT_H_
