#include "OstelProcUtils.h"

#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <array>
#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "OstelSigpipe.h"

namespace OstelProcUtils {

namespace {

constexpr std::size_t BUFFER_SIZE = 8192;

void CloseEnd(int end) {
    if (end != -1) {
        close(end);
    }
}

// Away from the numbers of the standard streams, which are free when the process has closed them: a
// child could not tell its ends from its standard streams then.
int MoveUp(int end) {
    if (end > STDERR_FILENO) {
        return end;
    }
    const int moved = fcntl(end, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(end);
    return moved;
}

// Takes the end over, if it can; otherwise its pipe keeps it.
std::unique_ptr<std::filebuf> BufferOver(int& end, std::ios::openmode mode) {
    auto buffer = std::make_unique<__gnu_cxx::stdio_filebuf<char>>(end, mode, BUFFER_SIZE);
    if (buffer->is_open()) {
        end = -1;
    }
    return buffer;
}

// Everything that a child needs is made before the fork: the locks of threads that are not there
// any more, the memory allocator's among them, may be held in it forever.
class TChildPlan {
public:
    TChildPlan(const std::string& program, const std::string& path,
               const std::vector<std::string>& arguments)
        : m_Greeting("[TProcess:Child]: Spawned! Executing '" + program + "'\n"),
          m_Failure("[TProcess:Child]: Failed to execute '" + path + "'!\n"),
          m_File(path),
          m_Words(arguments) {
        m_Words.insert(m_Words.begin(), path);
        for (std::string& word : m_Words) {
            if (word.find('\0') != std::string::npos) {
                // The system would take what stands before the NUL, which is something else.
                // Nothing has the empty name.
                m_File.clear();
            }
            m_Pointers.push_back(word.data());
        }
        m_Pointers.push_back(nullptr);
    }

    [[noreturn]] void Run(const TProcess::TPipe& input, const TProcess::TPipe& output) const {
        Tell(m_Greeting);
        dup2(input.readEnd, STDIN_FILENO);
        dup2(output.writeEnd, STDOUT_FILENO);
        for (const int end : {input.readEnd, input.writeEnd, output.readEnd, output.writeEnd}) {
            close(end);
        }
        execvp(m_File.c_str(), m_Pointers.data());
        Tell(m_Failure);
        // The parent's exit handlers and unwritten output are its own.
        _exit(1);
    }

private:
    static void Tell(const std::string& line) {
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    }

    std::string m_Greeting;
    std::string m_Failure;
    std::string m_File;
    std::vector<std::string> m_Words;
    std::vector<char*> m_Pointers;
};

}  // namespace

TProcess::TPipe::TPipe() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) == 0) {
        readEnd = MoveUp(ends[0]);
        writeEnd = MoveUp(ends[1]);
    }
    if (readEnd == -1 || writeEnd == -1) {
        Close();
        throw std::runtime_error("[TPipe]: Failed to create a pipe!");
    }
}

TProcess::TPipe::~TPipe() {
    Close();
}

void TProcess::TPipe::Close() {
    // A number that was given back may be another file's by now, and is not closed again.
    CloseEnd(std::exchange(readEnd, -1));
    CloseEnd(std::exchange(writeEnd, -1));
}

TProcess::TProcess(const std::string& name, const std::vector<std::string>& words)
    : output(nullptr), input(nullptr), program(name), arguments(words), pid(-1) {}

TProcess::~TProcess() {
    const OstelSigpipeBlock block;
    outputBuffer.reset();
}

bool TProcess::Spawn(const std::string& directory) {
    const TChildPlan plan(program, PathIn(directory), arguments);
    // The child's ends of the pipes go with the first one.
    const int child = toChild.readEnd != -1 ? fork() : -1;
    if (child == -1) {
        std::cerr << "[TProcess:Parent]: Failed to create a child process!\n";
        return false;
    }
    if (child == 0) {
        plan.Run(toChild, fromChild);
    }
    pid = child;
    std::cerr << "[TProcess:Parent]: Child process PID '" + std::to_string(pid) + "'\n";
    AttachStreams();
    return true;
}

std::string TProcess::PathIn(const std::string& directory) const {
    if (directory.empty()) {
        return program;
    }
    return directory + (directory.back() == '/' ? "" : "/") + program;
}

void TProcess::AttachStreams() {
    CloseEnd(std::exchange(toChild.readEnd, -1));
    CloseEnd(std::exchange(fromChild.writeEnd, -1));
    inputBuffer = BufferOver(fromChild.readEnd, std::ios::in | std::ios::binary);
    outputBuffer = BufferOver(toChild.writeEnd, std::ios::out | std::ios::binary);
    input.rdbuf(inputBuffer.get());
    output.rdbuf(outputBuffer.get());
}

void TProcess::Write(const std::string& text) {
    const OstelSigpipeBlock block;
    output << text << std::endl;
}

void TProcess::Write(const std::vector<unsigned char>& bytes) {
    const OstelSigpipeBlock block;
    for (const unsigned char byte : bytes) {
        output.put(static_cast<char>(byte));
    }
}

void TProcess::SendEof() {
    if (outputBuffer) {
        const OstelSigpipeBlock block;
        outputBuffer->close();
    }
}

void TProcess::Read(std::string& text) {
    std::string line;
    while (std::getline(input, line)) {
        if (line.empty()) {
            // The end of an answer, kept different from the end of the output.
            if (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            return;
        }
        text += line + "\n";
    }
}

void TProcess::Read(std::vector<unsigned char>& bytes) {
    char byte = 0;
    while (input.get(byte)) {
        bytes.push_back(static_cast<unsigned char>(byte));
    }
}

void TProcess::Wait() {
    status = -1;
    // Without a child of its own it would take away the end of somebody else's.
    while (pid != -1 && waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
    // From now on the number may be another process's.
    pid = -1;
    std::cerr << "[TProcess:Parent]: Child process terminated with status '" +
                     std::to_string(status) + "'\n";
}

}  // namespace OstelProcUtils
