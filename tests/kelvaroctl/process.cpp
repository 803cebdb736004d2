#include "tests/kelvaroctl/process.h"

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

#include "kelvaroctl/app.h"
#include "platform/owner.h"

namespace {
// A file without a name.
class Scratch : private NonCopyable {
  public:
    explicit Scratch(const std::string& content = "") : file_(tmpfile())
    {
        if (!file_ || fwrite(content.data(), 1, content.size(), file_) != content.size())
            throw std::runtime_error("no scratch file");
        rewind(file_);
    }
    ~Scratch() { fclose(file_); }

    int descriptor() const { return fileno(file_); }
    // Line ends are line feeds alone.
    std::string Content()
    {
        rewind(file_);
        std::string content;
        for (int ch = 0; (ch = getc(file_)) != EOF;) {
            if (ch == '\n' && !content.empty() && content.back() == '\r')
                content.pop_back();
            content += static_cast<char>(ch);
        }
        return content;
    }

  private:
    FILE* file_;
};

// Where the sanitizers report.
void ReportTo([[maybe_unused]] int descriptor)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(descriptor)));
#endif
}
}  // namespace

Ran RunToolHere(const std::vector<std::string>& arguments, const std::string& input)
{
    Scratch files[3] = {Scratch(input), Scratch(), Scratch()};
    int kept[3];
    fflush(nullptr);
    for (int stream = 0; stream < 3; ++stream) {
        kept[stream] = dup(stream);
        dup2(files[stream].descriptor(), stream);
    }
    rewind(stdin);
    std::cin.clear();
    ReportTo(kept[2]);
    const int exit = kelvaroctl::RunTool(arguments);
    ReportTo(2);
    std::cout.flush();
    fflush(nullptr);
    for (int stream = 0; stream < 3; ++stream) {
        dup2(kept[stream], stream);
        close(kept[stream]);
    }
    return {exit, files[1].Content(), files[2].Content()};
}

Ran RunProgram(const std::string& program, const std::vector<std::string>& arguments, const std::string& input)
{
    Scratch files[3] = {Scratch(input), Scratch(), Scratch()};
    const int exit = RunOn({files[0].descriptor(), files[1].descriptor(), files[2].descriptor()}, program, arguments);
    return {exit, files[1].Content(), files[2].Content()};
}
