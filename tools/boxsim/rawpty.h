#ifndef RAWPTY_H
#define RAWPTY_H

// A pseudo-terminal pair set up like the box's USB-serial adapter: the slave
// raw (no echo, no line editing, no CR/LF games), the master non-blocking.
// The simulator, the tests and the benchmarks all open their line with it.
#include <QString>

#include <fcntl.h>
#include <pty.h>
#include <termios.h>

inline bool openRawPty(int &master, int &slave, QString &slavePath)
{
    char name[256] = {};
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0)
        return false;
    termios t{};
    tcgetattr(slave, &t);
    cfmakeraw(&t);
    cfsetspeed(&t, B115200);
    tcsetattr(slave, TCSANOW, &t);
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
    slavePath = QString::fromLocal8Bit(name);
    return true;
}

#endif // RAWPTY_H
