#ifndef OSTEL_PROC_UTILS_H
#define OSTEL_PROC_UTILS_H

#include <fstream>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "OstelApi.h"

// Other programs, run by this one.
namespace OstelProcUtils {

// A child process whose standard input and output are the parent's to write and to read:
//
//     OstelProcUtils::TProcess sort("sort", {"-u"});
//     std::string lines;
//     if (sort.Spawn("")) {
//         sort.Write("b");
//         sort.Write("a");
//         sort.SendEof();
//         sort.Read(lines);  // "a\nb\n"
//         sort.Wait();
//     }
//
// What goes on is told on the standard error stream, which the child shares, and not logged. After
// a failure of the child, reading finds the end and writing does nothing; SIGPIPE never ends the
// parent, and its disposition is left alone.
//
// The child is not waited for when the object goes: call Wait, or it stays a zombie. Both sides
// wait for each other when neither reads: one thread may write while another one reads, otherwise
// an object serves one thread at a time. The order of the members is part of the binary interface.
class OSTEL_API TProcess {
public:
    // Both ends are close-on-exec. An end that was closed or given away is -1.
    class OSTEL_API TPipe {
    public:
        TPipe();  // throws std::runtime_error when there is none to be had
        TPipe(const TPipe&) = delete;
        TPipe& operator=(const TPipe&) = delete;
        ~TPipe();

        void Close();

        int readEnd = -1;
        int writeEnd = -1;
    };

    // Starts nothing. Throws std::runtime_error when no pipe can be created.
    TProcess(const std::string& program, const std::vector<std::string>& arguments);
    TProcess(const TProcess&) = delete;
    TProcess& operator=(const TProcess&) = delete;
    ~TProcess();

    // Runs directory/program, or, without a directory, the program as the shell would find it.
    // False when there is no new process, as with any but the first successful call. A program that
    // cannot be executed, as one with a NUL in its name or its arguments, is a child that ends with
    // status 1.
    bool Spawn(const std::string& directory);

    // A line, sent at once.
    void Write(const std::string& text);
    // Bytes, sent when 8192 of them are there, with the next line or with SendEof.
    void Write(const std::vector<unsigned char>& bytes);
    // Sends what is left and ends the child's input.
    void SendEof();

    // Appends lines up to an empty one, which ends an answer: then the last line has no line end.
    // When the output ends, it has one.
    void Read(std::string& text);
    // Appends all bytes up to the output's end.
    void Read(std::vector<unsigned char>& bytes);

    // Blocks until the child ends.
    void Wait();
    // What the last Wait found, as waitpid stores it; -1 when there was no child to wait for.
    int GetStatus() const { return status; }

private:
    std::string PathIn(const std::string& directory) const;
    void AttachStreams();

    TPipe fromChild;
    TPipe toChild;
    std::unique_ptr<std::filebuf> inputBuffer;
    std::unique_ptr<std::filebuf> outputBuffer;
    std::ostream output;
    std::istream input;
    std::string program;
    std::vector<std::string> arguments;
    int pid;
    int status = -1;
};

}  // namespace OstelProcUtils

#endif
