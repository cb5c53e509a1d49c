// A reader program made slow for test_accessfile: the Access reader's own work, with a pause of
// a millisecond after every row it reads.
#include "convert/accessfile.h"

#include <QCoreApplication>

#include <chrono>

#include <fcntl.h>
#include <unistd.h>

int main(int argc, char *argv[])
{
    if (argc != 2)
        return 64;
    // The answer goes up the original standard output; the library's complaints go nowhere.
    const int answer = ::dup(STDOUT_FILENO);
    const int devNull = ::open("/dev/null", O_WRONLY);
    if (answer < 0 || devNull < 0)
        return 70;
    ::dup2(devNull, STDOUT_FILENO);
    QCoreApplication app(argc, argv);
    tabulon::AccessFile::setRowPause(std::chrono::milliseconds(1));
    return tabulon::AccessFile::serve(QString::fromLocal8Bit(argv[1]), STDIN_FILENO, answer);
}
