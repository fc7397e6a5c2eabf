// Marks what the library exports; everything else stays inside it.
#ifndef OSTEL_API_H
#define OSTEL_API_H

#define OSTEL_API __attribute__((visibility("default")))

#endif
