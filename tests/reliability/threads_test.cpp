// Everything that may be used on several threads at a time, on eight of them with objects of their
// own, from the first use on: run it under the thread sanitizer. (Not the enumeration of
// interfaces, which is for one thread at a time, and not the lock, which belongs to the process.)

#include "checker/hashfile_checker.h"
#include "config/inifile.h"
#include "config/vpnxml.h"
#include "digest/hash.h"
#include "tests/support/leak_check.h"
#include "tests/support/scratch.h"
#include "text/agstr.h"
#include "text/base64.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::string;

constexpr int kThreads = 8;
constexpr int kRounds = 50;

// "abc", of RFC 1321, and of libgcrypt's GOSTR3411_CP and STRIBOG256.
constexpr char kMd5[] = "#MD5:900150983cd24fb0d6963f7d28e17f72";
constexpr char kGost94[] =
    "#GOST3411_RFC4357:b285056dbf18d7392d7677369524dd14747459ed8143997e163b2986f92fd42c";
constexpr char kGost2012[] =
    "#GOST3411_256_2012:4e2919cf137ed41ec4fb6270c61826cc4fffb660341e0af3688cd0626d23b481";

bool digests() {
    for (const string expected : {kMd5, kGost94, kGost2012}) {
        const std::unique_ptr<IHashFactory> factory(createHashFactory(expected));
        const std::unique_ptr<IHash_Calc> calc(factory->createHashCalc());
        calc->Update("abc", 3);
        const std::unique_ptr<IHash> digest(factory->createHash(*calc, true));
        if (digest->ToStr(false, true) != expected || !digest->Check(expected, false))
            return false;
    }
    return true;
}

bool strings() {
    struct Subclass : AGStr {
        using AGStr::AGStr;
    };
    Subclass text("a-b-c");
    text.Replace("-", "--");
    text += TWFormat("%d", 7);
    double number = 0;
    return text == "a--b--c7" && text.Match("*?a*c?", "xxabcd") &&
           AGStr("1.5").NumericParse(&number, 'd') && number == 1.5;
}

bool base64() {
    const unsigned char bytes[] = {'a', 'b', 'c'};
    char pem[200];
    unsigned char out[200];
    const int length = base64_encode_cert(bytes, 3, pem) - 1;
    return base64_decode_cert(pem, length, out, sizeof out) == 3 && out[2] == 'c';
}

bool iniTexts() {
    std::istringstream in("[g]\nk = v\n");
    const IniFile ini(in);
    return ini.get("g", "k") == "v" && ini.getAllGroups() == "[g] ";
}

// The work of one thread, with files of its own.
class Worker {
public:
    explicit Worker(const support::ScratchDirectory& folder, int number)
        : file_(folder.write(std::to_string(number) + "/file", "abc")),
          list_(folder.write(std::to_string(number) + "/list",
                             file_ + "=" + kMd5 + "\n" + file_ + "=" + kGost94 + "\n" + file_ +
                                 "=" + kGost2012 + "\nmissing=" + kMd5 + "\n")),
          document_(folder.path(std::to_string(number) + "/document")) {}

    bool run() const {
        bool good = true;
        for (int round = 0; round < kRounds && good; ++round)
            good = digests() && strings() && base64() && iniTexts() && checks() && documents();
        return good;
    }

private:
    bool checks() const {
        std::ostringstream out;
        HashFileChecker::Statistics stats{};
        const int code = HashFileChecker::CheckFiles(list_.c_str(), out, &stats);
        string text;
        return code == 0 && stats.checked == 4 && stats.notFound == 1 &&
               out.str() == "Warning: File not found: missing.\n" &&
               HashFileChecker::CalcHash(file_, "#MD5:", text) && text.size() == sizeof kMd5 - 1;
    }

    bool documents() const {
        XMLDocument document("root", true);
        document.AddChild(new XMLDeclaration("child"))->SetBody("<&>");
        XMLDocument again("", true);
        return document.Save(document_.c_str(), true) && again.Load(document_.c_str()) &&
               again.GetElementByName("child")->GetBody() == "<&>";
    }

    string file_;
    string list_;
    string document_;
};

TEST(Threads, WithObjectsOfTheirOwnDoNotMeet) {
    support::allowLeaks(); // what the system keeps of a finished thread
    const support::ScratchDirectory folder;
    std::vector<Worker> workers;
    for (int i = 0; i < kThreads; ++i)
        workers.emplace_back(folder, i);
    std::atomic<int> waiting{kThreads};
    std::atomic<int> succeeded{0};
    std::vector<std::thread> threads;
    for (const Worker& worker : workers) {
        threads.emplace_back([&] {
            --waiting;
            while (waiting > 0) // all begin together
                std::this_thread::yield();
            succeeded += worker.run() ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(succeeded, kThreads);
}

} // namespace
