// Marks what the shared library exports.
#ifndef ZEPH_API_H
#define ZEPH_API_H

#define ZEPH_API __attribute__((visibility("default")))

#endif
