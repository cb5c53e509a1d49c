// tabulon-accessreader FILE: reads an Access file for the program that starts it (see
// AccessFile::serve). It runs under limits of its own, so that a file made to exhaust the
// machine ends the reader, not the session.
#include "convert/accessfile.h"

#include <QCoreApplication>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

void limit(int resource, rlim_t value)
{
    rlimit current{};
    if (getrlimit(resource, &current) == 0 && (current.rlim_max == RLIM_INFINITY || current.rlim_max > value)) {
        current.rlim_cur = value;
        (void)setrlimit(resource, &current);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2)
        return 64;
    limit(RLIMIT_CPU, 600); // seconds of work
#if !defined(__SANITIZE_ADDRESS__) && !defined(TABULON_SANITIZED)
    // The file's image, the library's pages and one table's form; a sanitizer's shadow memory
    // would not fit under this, so sanitized builds go without it.
    limit(RLIMIT_AS, rlim_t(8) << 30);
#endif
    // The answer goes up the original standard output; the library writes its complaints about
    // pages it dislikes to standard output and error, which lead nowhere.
    const int answer = ::dup(STDOUT_FILENO);
    const int devNull = ::open("/dev/null", O_WRONLY);
    if (answer < 0 || devNull < 0)
        return 70;
    ::dup2(devNull, STDOUT_FILENO);
    ::dup2(devNull, STDERR_FILENO);
    QCoreApplication app(argc, argv);
    return tabulon::AccessFile::serve(QString::fromLocal8Bit(argv[1]), STDIN_FILENO, answer);
}
