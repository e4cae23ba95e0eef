#include "cli/hashing/file_hasher.h"

#include "cli/files/descriptor.h"
#include "cli/files/file_identity.h"
#include "cli/process/error.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

HashError systemError(int number, bool opened) {
    return {number, errorText(number), opened};
}

} // namespace

bool HashError::isMissing() const {
    return number == ENOENT || number == ENOTDIR;
}

FileHasher::FileHasher(OnBlock onBlock)
    : onBlock_(std::move(onBlock)), block_(std::make_unique<std::array<unsigned char, kBlock>>()) {
    for (const Algorithm& algorithm : kAlgorithms)
        factories_[algorithm.index()].reset(createHashFactory(algorithm.id));
}

FileHasher::Result FileHasher::look(const char* path) {
    if (::stat(path, &looked_) != 0)
        return systemError(errno, false);
    return std::nullopt;
}

FileHasher::Result FileHasher::open(const char* path, Descriptor& file) {
    if (S_ISDIR(looked_.st_mode))
        return systemError(EISDIR, false);
    if (!S_ISREG(looked_.st_mode))
        return HashError{0, "not a regular file", false};
    file = openWithoutBlocking(path, onBlock_);
    if (!file)
        return systemError(errno, false);
    return std::nullopt;
}

FileHasher::Result FileHasher::tryToOpen(const char* path) {
    Descriptor file;
    return open(path, file);
}

FileHasher::Result FileHasher::hash(const char* path, const Algorithms& algorithms) {
    Descriptor file;
    if (Result error = open(path, file))
        return error;
    begin(algorithms);
    if (Result error = readToEnd(file.get()))
        return error;
    finish(algorithms);
    return std::nullopt;
}

// The descriptor does not block, and nothing is waited for: what has no bytes now has changed.
FileHasher::Result FileHasher::readToEnd(int file) {
    const auto size = static_cast<std::uint64_t>(looked_.st_size);
    for (;;) {
        const Block block = fill(file, total_ < size ? size - total_ : 0);
        if (block.error == EAGAIN) {
            if (Result changed = compareLooks(file))
                return changed;
        }
        if (block.error != 0)
            return systemError(block.error, true);
        add(block.size);
        if (block.size < kBlock || total_ > size)
            return compareLooks(file);
    }
}

FileHasher::Result FileHasher::compareLooks(int file) const {
    struct stat now {};
    if (::fstat(file, &now) != 0)
        return systemError(errno, true);
    if (!isUnchanged(looked_, now))
        return HashError{0, "changed while it was read", true};
    if (total_ != static_cast<std::uint64_t>(now.st_size))
        return HashError{0,
                         "size mismatch: stat reports " + std::to_string(now.st_size) +
                             " bytes, read returned " + std::to_string(total_),
                         true};
    return std::nullopt;
}

FileHasher::Result FileHasher::hashStream(int descriptor, const Algorithms& algorithms) {
    begin(algorithms);
    std::size_t count = kBlock;
    try {
        while (count == kBlock) {
            count = readFull(descriptor, block_->data(), kBlock);
            add(count);
        }
    } catch (const std::system_error& error) {
        return systemError(error.code().value(), true);
    }
    finish(algorithms);
    return std::nullopt;
}

// Fills the block until it is full, the file ends, or `enough` bytes came. A read that asks for
// more than is left proves the end by returning less, which saves the read that returns 0.
FileHasher::Block FileHasher::fill(int file, std::uint64_t enough) {
    Block block{0, 0};
    while (block.size < kBlock) {
        const ssize_t count = ::read(file, block_->data() + block.size, kBlock - block.size);
        if (count < 0 && errno == EINTR) {
            onBlock_(0);
            continue;
        }
        if (count < 0)
            return {block.size, errno};
        block.size += static_cast<std::size_t>(count);
        if (count == 0 || block.size >= enough)
            break;
    }
    return block;
}

void FileHasher::begin(const Algorithms& algorithms) {
    total_ = 0;
    digests_.clear();
    calculators_.clear();
    for (const Algorithm* algorithm : algorithms)
        calculators_.push_back(
            std::unique_ptr<IHash_Calc>(factories_[algorithm->index()]->createHashCalc()));
}

void FileHasher::add(std::size_t count) {
    for (const auto& calculator : calculators_)
        calculator->Update(block_->data(), count);
    total_ += count;
    onBlock_(count);
}

void FileHasher::finish(const Algorithms& algorithms) {
    for (std::size_t i = 0; i < algorithms.size(); ++i) {
        const std::unique_ptr<IHash> digest(
            factories_[algorithms[i]->index()]->createHash(*calculators_[i], true));
        digests_.emplace_back(*algorithms[i], digest->Digest());
    }
}

} // namespace cli
