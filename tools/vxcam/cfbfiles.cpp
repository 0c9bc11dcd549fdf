#include "cfbfiles.h"

#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

QString systemError(int error)
{
    if (error == ENOENT)
        return QStringLiteral("no such file");
    return QString::fromLocal8Bit(std::strerror(error));
}

QByteArray baseName(const QByteArray &path)
{
    const int slash = path.lastIndexOf('/');
    return slash < 0 ? path : path.mid(slash + 1);
}

int openDirectoryOf(const QByteArray &path)
{
    const int slash = path.lastIndexOf('/');
    const QByteArray dir = slash < 0 ? QByteArray(".") : slash == 0 ? QByteArray("/") : path.left(slash);
    return ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool retry(int result) { return result < 0 && errno == EINTR; }

// Copies all of `from` (from its start) to `to` at its position.
bool copyAll(int from, int to, QString &error)
{
    off_t offset = 0;
    for (;;) {
        const ssize_t n = copy_file_range(from, &offset, to, nullptr, 1 << 30, 0);
        if (n == 0)
            return true;
        if (n > 0)
            continue;
        if (errno == EINTR)
            continue;
        if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP) {
            error = systemError(errno);
            return false;
        }
        break; // not between these files: copy by hand
    }
    char buffer[1 << 16];
    for (;;) {
        const ssize_t n = pread(from, buffer, sizeof buffer, offset);
        if (retry(int(n)))
            continue;
        if (n < 0) {
            error = systemError(errno);
            return false;
        }
        if (n == 0)
            return true;
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = write(to, buffer + done, size_t(n - done));
            if (retry(int(w)))
                continue;
            if (w < 0) {
                error = systemError(errno);
                return false;
            }
            done += w;
        }
        offset += n;
    }
}

// The one temporary file of the process, removed if a signal ends it.
volatile sig_atomic_t g_tempActive = 0;
int g_tempDir = -1;
char g_tempName[NAME_MAX + 1];

void removeTempAndDie(int signal)
{
    if (g_tempActive)
        unlinkat(g_tempDir, g_tempName, 0);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void installCleanup()
{
    static const bool installed = [] {
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
            struct sigaction action{};
            sigaction(signal, nullptr, &action);
            if (action.sa_handler == SIG_IGN)
                continue; // ignored by whoever started us: leave it so
            action.sa_handler = removeTempAndDie;
            sigemptyset(&action.sa_mask);
            action.sa_flags = 0;
            sigaction(signal, &action, nullptr);
        }
        return true;
    }();
    (void)installed;
}

} // namespace

// A new file with a hidden random name next to its target, in directory
// `dir`; removed unless moved into the target's place.
class TempFile
{
public:
    ~TempFile() { discard(); }

    bool create(int dir, const QByteArray &target, mode_t mode, QString &error)
    {
        installCleanup();
        m_dir = dir;
        const QByteArray stem = "." + target.left(200) + ".vxcam-";
        for (int attempt = 0; attempt < 100; ++attempt) {
            m_name = stem + QByteArray::number(QRandomGenerator::global()->generate(), 36);
            std::strncpy(g_tempName, m_name.constData(), NAME_MAX);
            g_tempDir = dir;
            m_fd = openat(dir, m_name.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
            if (m_fd >= 0) {
                g_tempActive = 1;
                return true;
            }
            if (errno != EEXIST)
                break;
        }
        error = systemError(errno);
        return false;
    }

    int fd() const { return m_fd; }

    // Gives the file the target's name: replacing what is there, or only
    // when nothing is.
    bool moveTo(const QByteArray &target, bool replace, QString &error)
    {
        int result;
        if (replace) {
            result = renameat(m_dir, m_name.constData(), m_dir, target.constData());
        } else {
            result = renameat2(m_dir, m_name.constData(), m_dir, target.constData(), RENAME_NOREPLACE);
            if (result < 0 && errno == EINVAL) { // a file system without it
                result = linkat(m_dir, m_name.constData(), m_dir, target.constData(), 0);
                if (result == 0)
                    unlinkat(m_dir, m_name.constData(), 0);
            }
        }
        if (result < 0) {
            error = errno == EEXIST ? QStringLiteral("already exists") : systemError(errno);
            return false;
        }
        g_tempActive = 0;
        m_name.clear();
        return true;
    }

    void discard()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
        if (!m_name.isEmpty()) {
            unlinkat(m_dir, m_name.constData(), 0);
            g_tempActive = 0;
            m_name.clear();
        }
    }

private:
    int m_dir = -1;
    int m_fd = -1;
    QByteArray m_name;
};

bool openForReading(QFile &file, QString &error)
{
    const QFileInfo info(file.fileName());
    if (info.isDir())
        error = QStringLiteral("is a directory");
    else if (!info.exists())
        error = QStringLiteral("no such file");
    else if (!info.isFile())
        error = QStringLiteral("not a regular file"); // devices and pipes could block or never end
    else if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        error = file.errorString();
    return error.isEmpty();
}

// --- LockedEdit -----------------------------------------------------------------

LockedEdit::LockedEdit() = default;

LockedEdit::~LockedEdit()
{
    m_copyFile.close();
    m_copy.reset();
    if (m_dirFd >= 0)
        ::close(m_dirFd);
    if (m_fd >= 0)
        ::close(m_fd); // releases the lock
}

bool LockedEdit::begin(const QString &path, QString &error)
{
    // A link is followed, so that the file it names is changed and the link stays.
    char *real = realpath(QFile::encodeName(path).constData(), nullptr);
    if (real == nullptr) {
        error = systemError(errno);
        return false;
    }
    m_path = real;
    std::free(real);
    m_name = baseName(m_path);
    // Editors replace the file, so a lock taken on the file one found may be
    // on a file that another edit has just replaced: lock, then make sure
    // the name still leads to the locked file, else start again. Each round
    // that starts again follows a finished edit, so this ends.
    for (;;) {
        m_fd = ::open(m_path.constData(), O_RDONLY | O_CLOEXEC);
        if (m_fd < 0 || fstat(m_fd, &m_stat) < 0) {
            error = systemError(errno);
            return false;
        }
        if (!S_ISREG(m_stat.st_mode)) {
            error = S_ISDIR(m_stat.st_mode) ? QStringLiteral("is a directory") : QStringLiteral("not a regular file");
            return false;
        }
        int locked;
        while (retry(locked = flock(m_fd, LOCK_EX))) {
        }
        struct stat now{};
        if (locked < 0) {
            error = systemError(errno);
            return false;
        }
        if (stat(m_path.constData(), &now) == 0 && now.st_dev == m_stat.st_dev && now.st_ino == m_stat.st_ino) {
            m_stat = now;
            break;
        }
        ::close(m_fd);
        m_fd = -1;
    }
    m_dirFd = openDirectoryOf(m_path);
    if (m_dirFd < 0) {
        error = systemError(errno);
        return false;
    }
    m_copy = std::make_unique<TempFile>();
    if (!m_copy->create(m_dirFd, m_name, S_IRUSR | S_IWUSR, error) || !copyAll(m_fd, m_copy->fd(), error))
        return false;
    if (!m_copyFile.open(m_copy->fd(), QIODevice::ReadWrite | QIODevice::Unbuffered, QFileDevice::DontCloseHandle)) {
        error = m_copyFile.errorString();
        return false;
    }
    return true;
}

bool LockedEdit::commit(QString &error)
{
    m_copyFile.close();
    const int copy = m_copy->fd();
    if (fsync(copy) < 0) {
        error = systemError(errno);
        return false;
    }
    // A file with more than one name is written in place, so that every
    // name sees the change: replacing it would leave the other names with
    // the old file. The copy is complete before the first byte of the file
    // is touched and the space is reserved first, so only a crash midway
    // (not a full disk) can leave it half written. Single-named files are
    // replaced, which nothing can leave half written.
    if (m_stat.st_nlink > 1)
        return writeInPlace(error);
    if (fchown(copy, m_stat.st_uid, m_stat.st_gid) < 0)
        (void)!fchown(copy, uid_t(-1), m_stat.st_gid); // an owner we may not give: keep at least the group
    if (fchmod(copy, m_stat.st_mode & 07777) < 0) {
        error = systemError(errno);
        return false;
    }
    if (!m_copy->moveTo(m_name, true, error))
        return false;
    fsync(m_dirFd);
    return true;
}

bool LockedEdit::writeInPlace(QString &error)
{
    const int out = ::open(m_path.constData(), O_WRONLY | O_CLOEXEC);
    struct stat target{};
    if (out < 0 || fstat(out, &target) < 0) {
        error = systemError(errno);
        if (out >= 0)
            ::close(out);
        return false;
    }
    bool ok = target.st_ino == m_stat.st_ino && target.st_dev == m_stat.st_dev;
    if (!ok)
        error = QStringLiteral("the file was replaced while it was being changed");
    const off_t size = lseek(m_copy->fd(), 0, SEEK_END);
    if (ok && size > m_stat.st_size) {
        const int reserved = posix_fallocate(out, 0, size);
        if (reserved != 0 && reserved != EOPNOTSUPP && reserved != EINVAL) {
            error = systemError(reserved);
            ok = false;
        }
    }
    ok = ok && copyAll(m_copy->fd(), out, error);
    if (ok && (ftruncate(out, size) < 0 || fsync(out) < 0)) {
        error = systemError(errno);
        ok = false;
    }
    ::close(out);
    m_copy->discard();
    return ok;
}

// --- new files ------------------------------------------------------------------

bool createNewFile(const QString &path, const std::function<bool(QFile &, QString &)> &write, QString &error)
{
    const QByteArray encoded = QFile::encodeName(path);
    const int dir = openDirectoryOf(encoded);
    if (dir < 0) {
        error = systemError(errno);
        return false;
    }
    bool ok = false;
    {
        TempFile temp;
        QFile file;
        const bool created = temp.create(dir, baseName(encoded), 0666, error);
        const QIODevice::OpenMode mode = QIODevice::ReadWrite | QIODevice::Unbuffered;
        if (created && !file.open(temp.fd(), mode, QFileDevice::DontCloseHandle)) {
            error = file.errorString();
        } else if (created) {
            ok = write(file, error);
            file.close();
            if (ok && fsync(temp.fd()) < 0) {
                error = systemError(errno);
                ok = false;
            }
            ok = ok && temp.moveTo(baseName(encoded), false, error);
        }
    }
    ::close(dir);
    return ok;
}

// --- extraction -----------------------------------------------------------------

ExtractDir::~ExtractDir()
{
    for (int fd : qAsConst(m_folders))
        ::close(fd);
    if (m_fd >= 0)
        ::close(m_fd);
}

bool ExtractDir::open(const QString &path, QString &error)
{
    const QByteArray encoded = QFile::encodeName(path);
    if (mkdir(encoded.constData(), 0777) < 0 && errno != EEXIST) {
        error = systemError(errno);
        return false;
    }
    m_fd = ::open(encoded.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_fd < 0)
        error = errno == ENOTDIR ? QStringLiteral("not a directory") : systemError(errno);
    return m_fd >= 0;
}

int ExtractDir::folder(const QStringList &folders, QString &error)
{
    int fd = m_fd;
    QString path;
    for (const QString &name : folders) {
        path += QLatin1Char('/') + name;
        const auto known = m_folders.constFind(path);
        if (known != m_folders.constEnd()) {
            fd = known.value();
            continue;
        }
        const QByteArray encoded = QFile::encodeName(name);
        if (mkdirat(fd, encoded.constData(), 0777) < 0 && errno != EEXIST) {
            error = QStringLiteral("%1: %2").arg(path.mid(1), systemError(errno));
            return -1;
        }
        // O_NOFOLLOW: a link planted where a folder goes could lead anywhere.
        const int sub = openat(fd, encoded.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (sub < 0) {
            error = QStringLiteral("%1: %2").arg(path.mid(1), errno == ELOOP || errno == ENOTDIR
                                                                   ? QStringLiteral("exists and is not a folder")
                                                                   : systemError(errno));
            return -1;
        }
        m_folders.insert(path, sub);
        fd = sub;
    }
    return fd;
}

bool ExtractDir::writeFile(const QStringList &folders, const QString &name,
                           const std::function<bool(QFile &, QString &)> &write, QString &error)
{
    const int dir = folder(folders, error);
    if (dir < 0)
        return false;
    const QByteArray encoded = QFile::encodeName(name);
    TempFile temp;
    QFile file;
    if (!temp.create(dir, encoded, 0666, error))
        return false;
    if (!file.open(temp.fd(), QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::DontCloseHandle)) {
        error = file.errorString();
        return false;
    }
    const bool written = write(file, error);
    file.close();
    return written && temp.moveTo(encoded, true, error);
}
