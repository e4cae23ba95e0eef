// Whole command lines of the tool, in a directory of its own: it ends with one of its statuses,
// complains in its own name, and leaves no temporary file.
//
// The input is the words, each ended by a line feed, up to an empty one; the rest is standard
// input. Words lead nowhere else: a "/" in front and ".." are taken out. No lock is taken.

#include "fuzz/scratch.h"
#include "fuzz/target.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#if defined(PELORIK_SANITIZED)
#include <sanitizer/common_interface_defs.h>
#endif

// The tool's main function.
int toolMain(int argc, char** argv);

namespace {

using std::string;
using Words = std::vector<string>;

const fuzz::Files kFiles = {
    {"a", "abc"},
    {"b", string(100000, 'b')},
    {"empty", ""},
    {"c.xml",
     "<?xml version='1.0'?>\n<a k='v' Hash='0'><!-- c --><b l=\"&amp;\">text</b><b/></a>\n"},
    {"d.ini", "# c\n[net]\nhost = example\n[]\nk=\n"},
    {"e.list", "a=#MD5:900150983cd24fb0d6963f7d28e17f72\nb=#MD5:0\nempty=x\nmissing=#MD5:0\n"},
    {"f.b64", "YWJj\nZGVm\n"},
    {"g.pem", "-----BEGIN CERTIFICATE-----\r\nYWJj\r\n-----END CERTIFICATE-----\r\n"},
};

string harmless(string word) {
    for (std::size_t at = word.find(".."); at != string::npos; at = word.find(".."))
        word.erase(at, 2);
    return word.substr(std::min(word.find_first_not_of('/'), word.size()));
}

// Takes the words from the front of `input`.
Words wordsOf(string& input) {
    Words words = {"pelorik"};
    while (!input.empty()) {
        const std::size_t end = std::min(input.find('\n'), input.size());
        const string word = harmless(input.substr(0, end).c_str());
        input.erase(0, end + 1);
        if (end == 0 || (words.size() == 2 && words[1] == "lock" && word == "--"))
            break;
        words.push_back(word);
    }
    return words;
}

// Descriptors 0, 1 and 2 are memory as long as it lives.
class Redirected {
public:
    Redirected(const fuzz::Memory& in, const fuzz::Memory& out, const fuzz::Memory& err) {
        const int descriptors[] = {in.descriptor(), out.descriptor(), err.descriptor()};
        for (int i = 0; i < 3; ++i) {
            before_[i] = fcntl(i, F_DUPFD_CLOEXEC, 3);
            dup2(descriptors[i], i);
        }
#if defined(PELORIK_SANITIZED)
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(before_[2])));
#endif
        sigaction(SIGINT, nullptr, &interrupt_);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;
    ~Redirected() {
        for (int i = 0; i < 3; ++i) {
            dup2(before_[i], i);
            close(before_[i]);
        }
#if defined(PELORIK_SANITIZED)
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(STDERR_FILENO)));
#endif
        sigaction(SIGINT, &interrupt_, nullptr);
    }

private:
    int before_[3];
    struct sigaction interrupt_ {};
};

int run(Words& words) {
    std::vector<char*> arguments;
    for (string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return toolMain(static_cast<int>(words.size()), arguments.data());
}

bool complainsInItsOwnName(const string& complaint) {
    for (std::size_t at = 0; at < complaint.size(); at = complaint.find('\n', at) + 1) {
        if (complaint.compare(at, 7, "pelorik") != 0)
            return false;
        if (complaint.find('\n', at) == string::npos)
            return false;
    }
    return true;
}

bool mayWrite(const Words& words) {
    return words.size() > 1 && (words[1] == "list" || words[1] == "update" || words[1] == "xml");
}

void requireNothingTemporary(const fuzz::Scratch& scratch) {
    for (const auto& entry : std::filesystem::directory_iterator(scratch.path()))
        fuzz::require(!entry.path().filename().string().starts_with(".pelorik-"),
                      "no temporary file is left");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::Scratch scratch(kFiles);
    static const fuzz::Memory in;
    static const fuzz::Memory out;
    static const fuzz::Memory err;
    string input(data, data + size);
    Words words = wordsOf(input);
    in.hold(input);
    out.hold("");
    err.hold("");
    int status = -1;
    {
        const fuzz::Inside inside(scratch);
        const Redirected redirected(in, out, err);
        status = run(words);
    }
    fuzz::require(status == 0 || status == 1 || status == 2, "the status is a documented one");
    fuzz::require(complainsInItsOwnName(err.content()), "complaints begin with the tool's name");
    const bool mayBeSilent = std::find(words.begin(), words.end(), "--status") != words.end();
    fuzz::require(status != 2 || mayBeSilent || !err.content().empty(), "trouble is told");
    requireNothingTemporary(scratch);
    if (mayWrite(words))
        scratch.restore();
    return 0;
}
