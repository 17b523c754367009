#include <support/ChildProcess.hpp>

#include <fcntl.h>
#include <sys/mman.h>

namespace fexo::test {

namespace {

// Forks and executes the program with the three descriptors as its standard input, output and
// error. Everything is built before forking: the child only duplicates descriptors and executes,
// which is safe whatever threads this process runs.
std::unique_ptr<ForkedProcess> start(const std::filesystem::path& program, std::vector<std::string> words, int input,
                                     int output, int errors)
{
    words.insert(words.begin(), program.string());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return std::make_unique<ForkedProcess>([&] {
        ::dup2(input, STDIN_FILENO), ::dup2(output, STDOUT_FILENO), ::dup2(errors, STDERR_FILENO);
        ::execv(argv[0], argv.data());
        return 127;
    });
}

// The whole content of a memory file, which is closed.
std::string contentOf(int fd)
{
    std::string content(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
    if (::pread(fd, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) content.clear();
    ::close(fd);
    return content;
}

} // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                           StandardError errors)
{
    int out[2];
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing < 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("cannot make the child's pipe");
    output_ = out[0];
    process_ = start(program, arguments, nothing, out[1], errors == StandardError::onStandardOutput ? out[1] : nothing);
    ::close(nothing), ::close(out[1]);
}

ChildProcess::~ChildProcess()
{
    process_.reset();
    ::close(output_);
}

ProcessResult ChildProcess::run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                                const std::string& standardInput)
{
    // Memory files, not pipes: nothing to pump while the child runs, whatever it writes.
    const int input = ::memfd_create("in", MFD_CLOEXEC), output = ::memfd_create("out", MFD_CLOEXEC),
              errors = ::memfd_create("err", MFD_CLOEXEC);
    if (::pwrite(input, standardInput.data(), standardInput.size(), 0) != static_cast<ssize_t>(standardInput.size()))
        throw std::runtime_error("cannot write the child's standard input");
    const auto status = start(program, arguments, input, output, errors)->wait(std::chrono::minutes(1));
    ::close(input);
    return {status.value_or(-1) < 0 ? -1 : *status, -status.value_or(0) > 0 ? -*status : 0, contentOf(output),
            contentOf(errors)};
}

std::string ChildProcess::readLine(std::chrono::milliseconds limit)
{
    std::string line;
    pollfd descriptor{output_, POLLIN, 0};
    for (char c = 0; ::poll(&descriptor, 1, static_cast<int>(limit.count())) == 1;) {
        if (::read(output_, &c, 1) != 1 || c == '\n') break;
        line.push_back(c);
    }
    return line;
}

int ChildProcess::stop(int signal, std::chrono::milliseconds limit)
{
    if (signal != 0) ::kill(process_->pid(), signal);
    const auto status = process_->wait(limit);
    return !status ? -1 : *status < 0 ? 128 - *status : *status;
}

} // namespace fexo::test
