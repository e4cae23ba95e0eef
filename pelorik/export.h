/// The export mark of the library's public names.
///
/// Everything in the library is hidden but what carries this mark.

#ifndef PELORIK_EXPORT_H
#define PELORIK_EXPORT_H

/// Exports the class or function behind it.
#define PELORIK_API __attribute__((visibility("default")))

#endif
