// The serial line: opening a terminal device as raw 8N1, moving bytes, and putting back the
// settings that were found.
#include "link/serial.h"

#include "link/seams_private.h"
#include "ui/msg.h"
#include "util/clock.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace kx {

namespace {

constexpr std::uint32_t WRITE_LOOK_MS = 100; // between two questions whether a write is to stop

int system_modem_get(int fd, int* bits) {
    return ioctl(fd, TIOCMGET, bits);
}

int system_modem_set(int fd, int bits) {
    return ioctl(fd, TIOCMSET, &bits);
}

constexpr SerialModem system_modem = {.get = system_modem_get, .set = system_modem_set};

struct State {
    const SerialModem* modem = &system_modem;
    int write_limit_ms = SERIAL_WRITE_LIMIT_MS;
    SerialStop write_stop = nullptr;
    bool hooked = false;         // whether the exit hook is registered
    SerialLine* first = nullptr; // of the lines that hold a device
};
State state;

// The cause of a read or write that failed: a device that is not there any more has hung up.
void transfer_failed(SerialLine& line, const char* step, int error) {
    const bool gone = error == EIO || error == ENXIO || error == ENODEV;
    line.failure = {step, gone ? FailureKind::Gone : FailureKind::System, error};
}

struct Speed {
    long baud;
    speed_t speed;
};
constexpr Speed speeds[] = {
    {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

const Speed* find_speed(long baud) {
    for (const Speed& row : speeds) {
        if (row.baud == baud) {
            return &row;
        }
    }
    return nullptr;
}

void set_modem_bit(const SerialLine& line, int bit, bool on) {
    int bits = 0;
    if (state.modem->get(line.fd, &bits) == 0) {
        state.modem->set(line.fd, on ? bits | bit : bits & ~bit);
    }
}

void close_all() {
    while (state.first != nullptr) {
        serial_close(*state.first);
    }
}

// The device, waited for as long as it is busy; errno when there is none.
Fd open_device(const std::string& device) {
    Fd fd(open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.is_open() && errno == EBUSY) {
        msg_message("%s is busy, waiting for it.", device.c_str());
        errno = EBUSY;
    }
    while (!fd.is_open() && errno == EBUSY) {
        sleep(1);
        fd.reset(open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
    return fd;
}

// Makes the descriptor and a stream on it the line's. False when there can be no stream.
bool attach(SerialLine& line, Fd fd, const std::string& device) {
    line.stream.reset(fdopen(fd.get(), "a+"));
    if (!line.stream) {
        return false;
    }
    line.fd = fd.release();
    line.device = device;
    line.next = state.first;
    state.first = &line;
    return true;
}

// Raw 8N1 with hardware flow control, from an all-zero record: nothing of what was set before
// stays.
termios raw_settings(speed_t speed) {
    termios settings = {};
    settings.c_iflag = IGNPAR;
    settings.c_cflag = CS8 | CREAD | CLOCAL | CRTSCTS;
#ifdef FLUSHO
    settings.c_lflag = FLUSHO; // Meant: nothing is to be discarded, and systems ignore it.
#endif
    settings.c_cc[VMIN] = 1; // a read blocks until a byte has come
    settings.c_cc[VTIME] = 0;
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    return settings;
}

// In a signal handler: what closing does for the next user of the device.
void restore_line(void* context) {
    const SerialLine& line = *static_cast<SerialLine*>(context);
    set_modem_bit(line, TIOCM_DTR, false);
    tcsetattr(line.fd, TCSANOW, &line.saved);
}

// Saves the settings of the attached device and sets its own. 1 or 0, as serial_open gives them.
int set_up(SerialLine& line, long baud) {
    const bool blocks = fcntl(line.fd, F_SETFL, 0) == 0; // reads do from here on
    line.has_saved = blocks && tcgetattr(line.fd, &line.saved) == 0;
    if (!line.has_saved) {
        line.failure = {"settings", FailureKind::System, errno};
        return 0;
    }
    const Speed* speed = find_speed(baud);
    if (speed == nullptr) {
        std::printf("error: %ldbaud not supported.\n", baud);
        line.failure = {"baud", FailureKind::System, EINVAL};
        return 0;
    }
    line.settings = raw_settings(speed->speed);
    line.ending.restore = restore_line;
    line.ending.context = &line;
    ending_add(line.ending);
    if (tcsetattr(line.fd, TCSAFLUSH, &line.settings) != 0 || tcflush(line.fd, TCIOFLUSH) != 0) {
        line.failure = {"settings", FailureKind::System, errno};
        return 0;
    }
    serial_set_dtr(line);
    line.is_open = true;
    return 1;
}

// Waits until the device takes bytes again; false when it did not in time. What counts is the time
// of the looks: that in which this process was stopped is none of the device's.
bool wait_writable(SerialLine& line) {
    const auto limit = static_cast<std::uint32_t>(std::max(state.write_limit_ms, 0));
    std::uint32_t waited = 0;
    while (waited < limit) {
        if (serial_stops_write(line, waited)) {
            return false;
        }
        const std::uint32_t began = clock_ms(), look = std::min(WRITE_LOOK_MS, limit - waited);
        pollfd wait = {line.fd, POLLOUT, 0};
        const int ready = poll(&wait, 1, static_cast<int>(look));
        waited += std::min(look, clock_ms() - began);
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            transfer_failed(line, "write", errno);
            return false;
        }
    }
    line.failure = {"write", FailureKind::Silent, 0};
    return false;
}

std::size_t write_all(SerialLine& line, const std::uint8_t* bytes, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t sent = ::write(line.fd, bytes + done, length - done);
        if (sent > 0) {
            done += static_cast<std::size_t>(sent);
            line.written += static_cast<std::uint64_t>(sent);
        } else if (sent < 0 && errno == EAGAIN) {
            if (!wait_writable(line)) {
                break;
            }
        } else if (sent == 0 || errno != EINTR) {
            transfer_failed(line, "write", sent < 0 ? errno : EIO);
            break;
        }
    }
    return done;
}

// Whether the last byte has left the device; where it cannot tell of its transmitter, its buffer.
bool is_sent(int fd) {
    int waiting = 0;
    if (ioctl(fd, TIOCOUTQ, &waiting) == 0 && waiting > 0) {
        return false;
    }
#ifdef TIOCSERGETLSR
    int status = 0;
    if (ioctl(fd, TIOCSERGETLSR, &status) == 0) {
        return (status & TIOCSER_TEMT) != 0;
    }
#endif
    return true;
}

// Other settings would garble what is still on its way out: the end of a transfer.
void wait_sent(const SerialLine& line) {
    for (int ms = 0; ms < state.write_limit_ms && !is_sent(line.fd); ms++) {
        usleep(1000);
    }
}

// At least one byte, waited for, and what else is there. 0 when the line is closed or gone.
std::size_t read_some(SerialLine& line, std::uint8_t* bytes, std::size_t length) {
    ssize_t got = 0;
    if (!line.is_open) {
        line.failure = {"read", FailureKind::System, ENOTCONN};
    } else if (length > 0) {
        do {
            got = ::read(line.fd, bytes, length);
        } while (got < 0 && errno == EINTR);
        if (got <= 0) {
            transfer_failed(line, "read", got < 0 ? errno : EIO);
        }
    }
    line.read_error = got <= 0;
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

} // namespace

SerialLine::~SerialLine() {
    serial_close(*this);
}

void serial_set_modem(const SerialModem* modem) {
    state.modem = modem != nullptr ? modem : &system_modem;
}

void serial_set_write_limit(int milliseconds) {
    state.write_limit_ms = milliseconds;
}

SerialStop serial_set_write_stop(SerialStop stop) {
    return std::exchange(state.write_stop, stop);
}

bool serial_stops_write(SerialLine& line, std::uint32_t waited_ms) {
    if (state.write_stop == nullptr || !state.write_stop(waited_ms)) {
        return false;
    }
    line.failure = {"write", FailureKind::System, ECANCELED};
    line.write_error = true;
    return true;
}

int serial_open(SerialLine& line, const std::string& device, long baud) {
    serial_close(line);
    const std::string name = device.empty() ? line.device : device;
    Fd fd = open_device(name);
    if (!fd.is_open()) {
        line.failure = {"open", FailureKind::System, errno};
        return -1;
    }
    return serial_adopt(line, std::move(fd), name, baud);
}

int serial_adopt(SerialLine& line, Fd fd, const std::string& device, long baud) {
    if (!state.hooked) {
        state.hooked = std::atexit(close_all) == 0;
    }
    serial_close(line);
    if (!attach(line, std::move(fd), device)) {
        line.failure = {"open", FailureKind::System, errno};
        return -1;
    }
    return set_up(line, baud);
}

void serial_close(SerialLine& line) {
    if (line.fd < 0) {
        return;
    }
    if (line.is_open) {
        wait_sent(line);
        serial_clear_dtr(line);
    }
    if (line.has_saved) {
        tcsetattr(line.fd, TCSANOW, &line.saved);
    }
    ending_remove(line.ending);
    SerialLine** link = &state.first;
    while (*link != &line) {
        link = &(*link)->next;
    }
    *link = line.next;
    line.next = nullptr;
    line.stream.reset(); // and the descriptor with it
    line.fd = -1;
    line.has_saved = false;
    line.is_open = false;
}

int serial_putc(SerialLine& line, std::uint8_t byte) {
    return serial_write(line, &byte, 1) == 1 ? 0 : 1;
}

std::size_t serial_write(SerialLine& line, const std::uint8_t* bytes, std::size_t length) {
    std::size_t done = 0;
    if (!line.is_open) {
        line.failure = {"write", FailureKind::System, ENOTCONN};
    } else {
        // Only while it writes does the line not block: a device that takes nothing any more, its
        // flow control off for good, is to end the transfer and not to stop the program.
        fcntl(line.fd, F_SETFL, O_NONBLOCK);
        done = write_all(line, bytes, length);
        fcntl(line.fd, F_SETFL, 0);
    }
    line.write_error = done < length;
    return done;
}

std::uint8_t serial_getc(SerialLine& line) {
    std::uint8_t byte = 0;
    if (read_some(line, &byte, 1) == 1) {
        line.last_byte = byte;
    }
    return byte;
}

std::uint8_t serial_getc_nowait(SerialLine& line) {
    std::uint8_t byte = 0;
    if (serial_read_waiting(line, &byte, 1) == 1) {
        line.last_byte = byte;
    }
    return byte;
}

std::size_t serial_read_waiting(SerialLine& line, std::uint8_t* bytes, std::size_t length) {
    line.read_error = true;
    return serial_has_data(line) != 0 ? read_some(line, bytes, length) : 0;
}

int serial_has_data(SerialLine& line) {
    int waiting = 0;
    return line.is_open && ioctl(line.fd, FIONREAD, &waiting) == 0 && waiting > 0 ? 1 : 0;
}

bool serial_wait_data(SerialLine& line, int milliseconds) {
    if (!line.is_open) {
        line.failure = {"read", FailureKind::System, ENOTCONN};
        return false;
    }
    pollfd wait = {line.fd, POLLIN, 0};
    const bool there = poll(&wait, 1, milliseconds) <= 0 || wait.revents == POLLIN;
    if (!there) {
        transfer_failed(line, "read", EIO);
    }
    return there;
}

bool serial_holds(int fd) {
    for (const SerialLine* line = state.first; line != nullptr; line = line->next) {
        if (line->fd == fd) {
            return true;
        }
    }
    return false;
}

void serial_set_dtr(SerialLine& line) {
    set_modem_bit(line, TIOCM_DTR, true);
}

void serial_clear_dtr(SerialLine& line) {
    set_modem_bit(line, TIOCM_DTR, false);
}

void serial_reset() {
    close_all();
    serial_set_modem(nullptr);
    serial_set_write_limit(SERIAL_WRITE_LIMIT_MS);
    serial_set_write_stop(nullptr);
}

} // namespace kx
