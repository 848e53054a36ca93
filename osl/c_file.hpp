// Owns a stream of the C library that is only read, or whose last write nobody checks.
#ifndef CORVANE_OSL_C_FILE_HPP
#define CORVANE_OSL_C_FILE_HPP

#include <cstdio>
#include <memory>

namespace corvane {

struct CloseCFile {
    void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};
using CFile = std::unique_ptr<std::FILE, CloseCFile>;

}  // namespace corvane
#endif
