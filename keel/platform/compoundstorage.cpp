#include "keel/platform/compoundstorage.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <fcntl.h>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-input.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-output.h>
#include <gsf/gsf-utils.h>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

namespace keel {

namespace compound {

// A stream (its bytes) or a storage (its elements). A node that was destroyed or reverted is
// detached: handles still holding it fail.
struct Node {
    CString name;
    bool isStorage = false;
    std::vector<std::uint8_t> bytes;
    std::vector<std::shared_ptr<Node>> children;
    std::array<std::uint8_t, 16> classID{};
    bool detached = false;
    int openHandles = 0;
};

class LockedFile : public CFile {
public:
    using CFile::Handle;
};

// The file behind a tree: where it is written, whether it may change, and the open file that
// holds the sharing lock while the tree is in use.
struct Tree {
    CString path;
    bool inMemory = false;
    bool writable = false;
    unsigned shareFlags = 0;
    // Whether the file on disk (or the bytes in memory) holds the tree as last committed.
    bool hasSource = false;
    LockedFile lock;
    std::vector<std::uint8_t> bytes;
    std::shared_ptr<Node> root = std::make_shared<Node>();
};

} // namespace compound

using compound::Node;
using compound::Tree;

namespace {

constexpr unsigned long long c_maxStreamLength = 0xFFFFFFFFull;
constexpr std::size_t c_copyChunk = 1 << 20;
// Each element takes one 128-byte entry of the file's directory.
constexpr unsigned long long c_directoryEntrySize = 128;

void InitialiseGsf() {
    static std::once_flag once;
    // libgsf describes each flaw of a damaged file on standard error; our failures say what
    // went wrong, and a server has no one reading that output.
    std::call_once(once, [] {
        gsf_init();
        for (const char* domain : {"libgsf", "libgsf:msole"})
            g_log_set_handler(
                domain, static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK),
                [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    });
}

struct GObjectUnref {
    void operator()(void* object) const {
        if (object != nullptr)
            g_object_unref(object);
    }
};
template <class T>
using GPtr = std::unique_ptr<T, GObjectUnref>;

struct GErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};

std::string MessageOf(GError* error, const char* fallback) {
    std::unique_ptr<GError, GErrorFree> owned(error);
    return owned && owned->message ? std::string(owned->message) : std::string(fallback);
}

bool Report(CFileException* error, int cause, const CString& name, const std::string& detail) {
    if (error)
        *error = CFileException(cause, -1, name, detail);
    return false;
}

template <class T>
std::unique_ptr<T> ReportNull(CFileException* error, int cause, const CString& name,
                              const std::string& detail) {
    Report(error, cause, name, detail);
    return nullptr;
}

// The reason a name cannot be an element's name, or empty.
std::string NameProblem(const CString& name) {
    if (name.IsEmpty())
        return "an element needs a name";
    if (static_cast<unsigned>(name.GetLength()) > CStorage::c_maxNameLength)
        return "a name holds at most 31 characters";
    for (const char16_t unit : name.View()) {
        if (unit == 0 || unit == u'/' || unit == u'\\' || unit == u':' || unit == u'!')
            return "a name may not hold '/', '\\', ':', '!' or a null character";
    }
    if (CString::FromUtf8(name.ToUtf8()) != name)
        return "a name must be valid Unicode";
    return std::string();
}

char16_t FoldedUnit(char16_t unit) {
    if (unit >= u'a' && unit <= u'z')
        return static_cast<char16_t>(unit - u'a' + u'A');
    return unit < 0x80 ? unit : static_cast<char16_t>(std::towupper(unit));
}

// The order of the format: shorter names first, then by the names in capitals.
bool NameBefore(const CString& left, const CString& right) {
    if (left.GetLength() != right.GetLength())
        return left.GetLength() < right.GetLength();
    const std::u16string_view a = left.View();
    const std::u16string_view b = right.View();
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (FoldedUnit(a[i]) != FoldedUnit(b[i]))
            return FoldedUnit(a[i]) < FoldedUnit(b[i]);
    }
    return false;
}

void AddChild(Node& storage, std::shared_ptr<Node> child) {
    const auto place =
        std::upper_bound(storage.children.begin(), storage.children.end(), child,
                         [](const auto& a, const auto& b) { return NameBefore(a->name, b->name); });
    storage.children.insert(place, std::move(child));
}

// Names the format takes for the same: equal but for case.
bool SameName(const CString& left, const CString& right) {
    return !NameBefore(left, right) && !NameBefore(right, left);
}

std::shared_ptr<Node> FindChild(const Node& storage, const CString& name) {
    const auto place = std::lower_bound(storage.children.begin(), storage.children.end(), name,
                                        [](const std::shared_ptr<Node>& child, const CString& key) {
                                            return NameBefore(child->name, key);
                                        });
    if (place == storage.children.end() || !SameName((*place)->name, name))
        return nullptr;
    return *place;
}

void Detach(Node& node) {
    node.detached = true;
    for (const std::shared_ptr<Node>& child : node.children)
        Detach(*child);
}

void RemoveChild(Node& storage, const std::shared_ptr<Node>& child) {
    Detach(*child);
    std::erase(storage.children, child);
}

// Builds a tree from a compound file through libgsf, trusting no count or size the file claims
// beyond what its length can hold.
class TreeReader {
public:
    TreeReader(const CString& name, unsigned long long fileSize)
        : m_name(name), m_fileSize(fileSize) {}

    std::shared_ptr<Node> Read(GsfInput* input) {
        GError* failure = nullptr;
        GPtr<GsfInfile> infile(gsf_infile_msole_new(input, &failure));
        if (!infile)
            Fail("not a compound file (" + MessageOf(failure, "unreadable") + ")");
        auto root = std::make_shared<Node>();
        root->isStorage = true;
        ReadStorage(infile.get(), *root, 0);
        return root;
    }

private:
    [[noreturn]] void Fail(const std::string& detail) const {
        throw CFileException(CFileException::invalidFile, -1, m_name, detail);
    }

    void ReadStorage(GsfInfile* storage, Node& node, int depth) {
        gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(storage), node.classID.data());
        const int count = gsf_infile_num_children(storage);
        if (count < 0)
            Fail("a storage cannot be read");
        for (int index = 0; index < count; ++index)
            ReadElement(storage, index, node, depth);
    }

    void ReadElement(GsfInfile* storage, int index, Node& parent, int depth) {
        m_elements += 1;
        if (m_elements > CStorage::c_maxElements ||
            m_elements > m_fileSize / c_directoryEntrySize + 1)
            Fail("more elements than the file can hold");
        const char* rawName = gsf_infile_name_by_index(storage, index);
        if (rawName == nullptr || *rawName == '\0')
            Fail("an element has no name");
        auto node = std::make_shared<Node>();
        node->name = CString::FromUtf8(rawName);
        if (FindChild(parent, node->name))
            Fail("two elements are named '" + std::string(rawName) + "'");
        GPtr<GsfInput> child(gsf_infile_child_by_index(storage, index));
        if (!child)
            Fail("element '" + std::string(rawName) + "' cannot be read");
        node->isStorage =
            GSF_IS_INFILE(child.get()) && gsf_infile_num_children(GSF_INFILE(child.get())) >= 0;
        if (node->isStorage) {
            if (depth + 1 > CStorage::c_maxDepth)
                Fail("storages are nested more than 32 deep");
            ReadStorage(GSF_INFILE(child.get()), *node, depth + 1);
        } else {
            ReadStream(child.get(), *node, rawName);
        }
        AddChild(parent, std::move(node));
    }

    void ReadStream(GsfInput* stream, Node& node, const char* name) {
        // Streams share no bytes of the file, so together they fit in it.
        const gsf_off_t size = gsf_input_size(stream);
        if (size < 0 || static_cast<unsigned long long>(size) > m_fileSize - m_streamBytes)
            Fail("stream '" + std::string(name) + "' claims more bytes than the file holds");
        m_streamBytes += static_cast<unsigned long long>(size);
        node.bytes.resize(static_cast<std::size_t>(size));
        std::size_t done = 0;
        while (done < node.bytes.size()) {
            const std::size_t chunk = std::min(c_copyChunk, node.bytes.size() - done);
            if (gsf_input_read(stream, chunk, node.bytes.data() + done) == nullptr)
                Fail("stream '" + std::string(name) + "' is damaged");
            done += chunk;
        }
    }

    CString m_name;
    unsigned long long m_fileSize;
    unsigned long long m_elements = 0;
    unsigned long long m_streamBytes = 0;
};

std::shared_ptr<Node> ReadTreeFromBytes(const std::vector<std::uint8_t>& bytes) {
    InitialiseGsf();
    GPtr<GsfInput> input(
        gsf_input_memory_new(bytes.data(), static_cast<gsf_off_t>(bytes.size()), FALSE));
    if (!input)
        throw CFileException(CFileException::invalidFile, -1, CString(), "no bytes to read");
    return TreeReader(CString(), bytes.size()).Read(input.get());
}

// Reads the file open on `descriptor` from its start, leaving the descriptor open.
std::shared_ptr<Node> ReadTreeFromDescriptor(int descriptor, const CString& path) {
    InitialiseGsf();
    struct stat status {};
    if (fstat(descriptor, &status) != 0)
        CFileException::ThrowOsError(errno, path);
    const int copy = ::dup(descriptor);
    FILE* stream = copy < 0 ? nullptr : ::fdopen(copy, "rb");
    if (stream == nullptr) {
        const int failure = errno;
        if (copy >= 0)
            ::close(copy);
        CFileException::ThrowOsError(failure, path);
    }
    std::rewind(stream);
    const std::string name = path.ToUtf8();
    GPtr<GsfInput> input(gsf_input_stdio_new_FILE(name.c_str(), stream, FALSE));
    if (!input) {
        std::fclose(stream);
        throw CFileException(CFileException::invalidFile, -1, path, "the file cannot be read");
    }
    return TreeReader(path, static_cast<unsigned long long>(status.st_size)).Read(input.get());
}

// Writes a tree through libgsf into `sink`, which it closes. A sink on a file reports the
// system's error number as its error code.
class TreeWriter {
public:
    TreeWriter(const CString& name, bool errorCodesAreErrno)
        : m_name(name), m_errorCodesAreErrno(errorCodesAreErrno) {}

    void Write(const Node& root, GsfOutput* sink) {
        m_sink = sink;
        GPtr<GsfOutfile> outfile(gsf_outfile_msole_new(sink));
        if (!outfile)
            Fail(sink, "libgsf cannot start the file");
        WriteStorage(root, outfile.get());
        if (!gsf_output_close(GSF_OUTPUT(outfile.get())))
            Fail(GSF_OUTPUT(outfile.get()), "the file could not be finished");
        if (!gsf_output_is_closed(sink) && !gsf_output_close(sink))
            Fail(sink, "the file could not be closed");
        if (gsf_output_error(sink) != nullptr)
            Fail(sink, "the file could not be written");
    }

private:
    [[noreturn]] void Fail(GsfOutput* output, const std::string& what) const {
        const GError* failure = m_sink ? gsf_output_error(m_sink) : nullptr;
        if (failure == nullptr && output != nullptr)
            failure = gsf_output_error(output);
        std::string detail = what;
        if (failure != nullptr && failure->message != nullptr)
            detail += std::string(" (") + failure->message + ")";
        if (failure != nullptr && m_errorCodesAreErrno && failure->code > 0)
            throw CFileException(CFileException::OsErrorToException(failure->code), failure->code,
                                 m_name, detail);
        throw CFileException(CFileException::hardIO, -1, m_name, detail);
    }

    void WriteStorage(const Node& storage, GsfOutfile* outfile) {
        if (storage.classID != std::array<std::uint8_t, 16>{})
            gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(outfile), storage.classID.data());
        for (const std::shared_ptr<Node>& child : storage.children) {
            const std::string name = child->name.ToUtf8();
            GPtr<GsfOutput> output(gsf_outfile_new_child(outfile, name.c_str(), child->isStorage));
            if (!output)
                Fail(GSF_OUTPUT(outfile), "element '" + name + "' could not be started");
            if (child->isStorage)
                WriteStorage(*child, GSF_OUTFILE(output.get()));
            else
                WriteStream(*child, output.get(), name);
            if (!gsf_output_close(output.get()))
                Fail(output.get(), "element '" + name + "' could not be finished");
        }
    }

    void WriteStream(const Node& stream, GsfOutput* output, const std::string& name) {
        std::size_t done = 0;
        while (done < stream.bytes.size()) {
            const std::size_t chunk = std::min(c_copyChunk, stream.bytes.size() - done);
            if (!gsf_output_write(output, chunk, stream.bytes.data() + done))
                Fail(output, "stream '" + name + "' could not be written");
            done += chunk;
        }
    }

    CString m_name;
    bool m_errorCodesAreErrno;
    GsfOutput* m_sink = nullptr;
};

// Whether the file libgsf reads from `input` holds exactly the tree.
class TreeComparer {
public:
    bool Same(GsfInput* input, const Node& root) {
        GPtr<GsfInfile> infile(gsf_infile_msole_new(input, nullptr));
        return infile && SameStorage(infile.get(), root);
    }

private:
    bool SameStorage(GsfInfile* storage, const Node& node) {
        std::array<std::uint8_t, 16> classID{};
        gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(storage), classID.data());
        const int count = gsf_infile_num_children(storage);
        if (classID != node.classID || count != static_cast<int>(node.children.size()))
            return false;
        std::unordered_set<const Node*> matched;
        for (int index = 0; index < count; ++index) {
            const char* name = gsf_infile_name_by_index(storage, index);
            const std::shared_ptr<Node> child =
                name ? FindChild(node, CString::FromUtf8(name)) : nullptr;
            if (!child || child->name.ToUtf8() != name || !matched.insert(child.get()).second)
                return false;
            GPtr<GsfInput> input(gsf_infile_child_by_index(storage, index));
            if (!input)
                return false;
            const bool isStorage =
                GSF_IS_INFILE(input.get()) && gsf_infile_num_children(GSF_INFILE(input.get())) >= 0;
            if (isStorage != child->isStorage)
                return false;
            if (isStorage ? !SameStorage(GSF_INFILE(input.get()), *child)
                          : !SameStream(input.get(), *child))
                return false;
        }
        return true;
    }

    bool SameStream(GsfInput* input, const Node& node) {
        if (gsf_input_size(input) != static_cast<gsf_off_t>(node.bytes.size()))
            return false;
        std::size_t done = 0;
        while (done < node.bytes.size()) {
            const std::size_t chunk = std::min(c_copyChunk, node.bytes.size() - done);
            const guint8* data = gsf_input_read(input, chunk, nullptr);
            if (data == nullptr || std::memcmp(data, node.bytes.data() + done, chunk) != 0)
                return false;
            done += chunk;
        }
        return true;
    }
};

std::vector<std::uint8_t> WriteTreeToBytes(const Node& root, const CString& name) {
    InitialiseGsf();
    GPtr<GsfOutput> sink(gsf_output_memory_new());
    TreeWriter(name, false).Write(root, sink.get());
    const guint8* data = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink.get()));
    const auto size = static_cast<std::size_t>(gsf_output_size(sink.get()));
    return std::vector<std::uint8_t>(data, data + size);
}

void CheckWrittenBytes(const std::vector<std::uint8_t>& bytes, const Node& root,
                       const CString& name) {
    GPtr<GsfInput> input(
        gsf_input_memory_new(bytes.data(), static_cast<gsf_off_t>(bytes.size()), FALSE));
    if (!input || !TreeComparer().Same(input.get(), root))
        throw CFileException(CFileException::hardIO, -1, name,
                             "the written file does not read back as it was written");
}

// Reads the file just written, which no one else knows of yet, through a mapping of it: the
// check then costs no copy of the file.
void CheckWrittenFile(const std::string& written, const Node& root, const CString& target) {
    const int descriptor = ::open(written.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        const int failure = errno;
        if (descriptor >= 0)
            ::close(descriptor);
        CFileException::ThrowOsError(failure, target);
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void* mapped = size ? ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0) : MAP_FAILED;
    ::close(descriptor);
    bool same = false;
    if (mapped != MAP_FAILED) {
        GPtr<GsfInput> input(
            gsf_input_memory_new(static_cast<const guint8*>(mapped), status.st_size, FALSE));
        same = input && TreeComparer().Same(input.get(), root);
        input.reset();
        ::munmap(mapped, size);
    }
    if (!same)
        throw CFileException(CFileException::hardIO, -1, target,
                             "the written file does not read back as it was written");
}

// A file beside `target` that did not exist; its descriptor, open for writing.
int CreateFileBeside(const CString& target, CString& made) {
    const auto seed = static_cast<unsigned>(
        std::chrono::steady_clock::now().time_since_epoch().count() ^ (::getpid() << 16));
    for (unsigned attempt = 0;; ++attempt) {
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, ".%08x.tmp", seed + attempt * 2654435761u);
        made = target + CString::FromUtf8(suffix);
        const int descriptor =
            ::open(made.ToUtf8().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0 || errno != EEXIST || attempt == 100) {
            if (descriptor < 0)
                CFileException::ThrowOsError(errno, target);
            return descriptor;
        }
    }
}

// Writes the tree to a new file, makes sure it is on the disk and reads back whole; the new
// file's path. Nothing of it is left when that fails.
CString WriteTreeBeside(const Node& root, const CString& target) {
    InitialiseGsf();
    CString written;
    const int descriptor = CreateFileBeside(target, written);
    const std::string name = written.ToUtf8();
    FILE* stream = ::fdopen(descriptor, "wb");
    if (stream == nullptr) {
        const int failure = errno;
        ::close(descriptor);
        std::remove(name.c_str());
        CFileException::ThrowOsError(failure, target);
    }
    try {
        {
            GPtr<GsfOutput> sink(gsf_output_stdio_new_FILE(name.c_str(), stream, TRUE));
            TreeWriter(target, true).Write(root, sink.get());
        }
        if (std::fflush(stream) != 0 || ::fsync(::fileno(stream)) != 0)
            CFileException::ThrowOsError(errno, target);
        const int closed = std::fclose(stream);
        stream = nullptr;
        if (closed != 0)
            CFileException::ThrowOsError(errno, target);
        CheckWrittenFile(name, root, target);
    } catch (...) {
        if (stream != nullptr)
            std::fclose(stream);
        std::remove(name.c_str());
        throw;
    }
    return written;
}

void SyncFolderOf(const CString& path) {
    const std::string text = path.ToUtf8();
    const std::size_t slash = text.rfind('/');
    const std::string folder = slash == std::string::npos
                                   ? std::string(".")
                                   : text.substr(0, std::max<std::size_t>(slash, 1));
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

unsigned LockFlags(unsigned flags) {
    return ((flags & 0x3) != CFile::modeRead ? CFile::modeReadWrite : CFile::modeRead) |
           (flags & 0x70);
}

bool Writable(unsigned flags) {
    return (flags & 0x3) != CFile::modeRead;
}

} // namespace

CStorage::CStorage(std::shared_ptr<Tree> tree, std::shared_ptr<Node> node, bool writable)
    : m_tree(std::move(tree)), m_node(std::move(node)), m_writable(writable) {}

CStorage::~CStorage() = default;

std::unique_ptr<CStorage> CStorage::OpenFile(const CString& path, unsigned flags,
                                             CFileException* error) {
    auto tree = std::make_shared<Tree>();
    tree->path = path;
    tree->writable = Writable(flags);
    tree->shareFlags = flags & 0x70;
    if (!tree->lock.Open(path, LockFlags(flags), error))
        return nullptr;
    try {
        tree->root = ReadTreeFromDescriptor(tree->lock.Handle(), path);
    } catch (const CFileException& failure) {
        if (error)
            *error = failure;
        return nullptr;
    }
    tree->hasSource = true;
    auto root = tree->root;
    const bool writable = tree->writable;
    return std::unique_ptr<CStorage>(new CStorage(std::move(tree), std::move(root), writable));
}

std::unique_ptr<CStorage> CStorage::CreateFile(const CString& path, unsigned flags,
                                               CFileException* error) {
    struct stat status {};
    const std::string text = path.ToUtf8();
    if (::stat(text.c_str(), &status) == 0 && !(flags & CFile::modeCreate))
        return ReportNull<CStorage>(error, CFileException::accessDenied, path,
                                    "the file exists already");
    const std::size_t slash = text.rfind('/');
    if (slash != std::string::npos && slash > 0 &&
        ::stat(text.substr(0, slash).c_str(), &status) != 0)
        return ReportNull<CStorage>(error, CFileException::badPath, path,
                                    "the folder does not exist");
    auto tree = std::make_shared<Tree>();
    tree->path = path;
    tree->writable = Writable(flags);
    tree->shareFlags = flags & 0x70;
    tree->root->isStorage = true;
    auto root = tree->root;
    const bool writable = tree->writable;
    return std::unique_ptr<CStorage>(new CStorage(std::move(tree), std::move(root), writable));
}

std::unique_ptr<CStorage> CStorage::OpenBytes(std::vector<std::uint8_t> bytes, unsigned flags,
                                              CFileException* error) {
    auto tree = std::make_shared<Tree>();
    tree->inMemory = true;
    tree->writable = Writable(flags);
    tree->root->isStorage = true;
    if (!bytes.empty()) {
        try {
            tree->root = ReadTreeFromBytes(bytes);
        } catch (const CFileException& failure) {
            if (error)
                *error = failure;
            return nullptr;
        }
        tree->hasSource = true;
    }
    tree->bytes = std::move(bytes);
    auto root = tree->root;
    const bool writable = tree->writable;
    return std::unique_ptr<CStorage>(new CStorage(std::move(tree), std::move(root), writable));
}

std::unique_ptr<CStorage> CStorage::OpenStorage(const CString& name, unsigned flags,
                                                CFileException* error) {
    if (m_node->detached)
        return ReportNull<CStorage>(error, CFileException::invalidFile, name,
                                    "the storage was removed or reverted");
    if (Writable(flags) && !CanWrite())
        return ReportNull<CStorage>(error, CFileException::accessDenied, name,
                                    "the storage is open for reading only");
    std::shared_ptr<Node> child = FindChild(*m_node, name);
    if (!child)
        return ReportNull<CStorage>(error, CFileException::fileNotFound, name,
                                    "there is no such storage");
    if (!child->isStorage)
        return ReportNull<CStorage>(error, CFileException::accessDenied, name,
                                    "the element is a stream, not a storage");
    return std::unique_ptr<CStorage>(new CStorage(m_tree, std::move(child), Writable(flags)));
}

std::unique_ptr<CStorage> CStorage::CreateStorage(const CString& name, unsigned flags,
                                                  CFileException* error) {
    if (m_node->detached)
        return ReportNull<CStorage>(error, CFileException::invalidFile, name,
                                    "the storage was removed or reverted");
    if (!CanWrite())
        return ReportNull<CStorage>(error, CFileException::accessDenied, name,
                                    "the storage is open for reading only");
    if (const std::string problem = NameProblem(name); !problem.empty())
        return ReportNull<CStorage>(error, CFileException::badPath, name, problem);
    if (std::shared_ptr<Node> old = FindChild(*m_node, name)) {
        if (!(flags & CFile::modeCreate))
            return ReportNull<CStorage>(error, CFileException::accessDenied, name,
                                        "an element of that name exists already");
        if (old->openHandles > 0)
            return ReportNull<CStorage>(error, CFileException::accessDenied, name,
                                        "the element is open");
        RemoveChild(*m_node, old);
    }
    auto child = std::make_shared<Node>();
    child->name = name;
    child->isStorage = true;
    AddChild(*m_node, child);
    return std::unique_ptr<CStorage>(new CStorage(m_tree, std::move(child), true));
}

bool CStorage::DestroyElement(const CString& name, CFileException* error) {
    if (m_node->detached)
        return Report(error, CFileException::invalidFile, name,
                      "the storage was removed or reverted");
    if (!CanWrite())
        return Report(error, CFileException::accessDenied, name,
                      "the storage is open for reading only");
    std::shared_ptr<Node> child = FindChild(*m_node, name);
    if (!child)
        return Report(error, CFileException::fileNotFound, name, "there is no such element");
    RemoveChild(*m_node, child);
    return true;
}

std::vector<CStorageElement> CStorage::EnumElements() const {
    std::vector<CStorageElement> elements;
    if (m_node->detached)
        return elements;
    for (const std::shared_ptr<Node>& child : m_node->children) {
        CStorageElement element;
        element.m_strName = child->name;
        element.m_type =
            child->isStorage ? CStorageElement::typeStorage : CStorageElement::typeStream;
        element.m_size = child->isStorage ? 0 : child->bytes.size();
        elements.push_back(std::move(element));
    }
    return elements;
}

bool CStorage::Commit(unsigned, CFileException* error) {
    if (m_node->detached)
        return Report(error, CFileException::invalidFile, m_tree->path,
                      "the storage was removed or reverted");
    if (!m_writable)
        return Report(error, CFileException::accessDenied, m_tree->path,
                      "the storage is open for reading only");
    try {
        if (m_tree->inMemory) {
            std::vector<std::uint8_t> bytes = WriteTreeToBytes(*m_tree->root, CString());
            CheckWrittenBytes(bytes, *m_tree->root, CString());
            m_tree->bytes = std::move(bytes);
        } else {
            const CString written = WriteTreeBeside(*m_tree->root, m_tree->path);
            CString reason;
            if (!ReplaceFileWithWritten(written, m_tree->path, reason)) {
                std::remove(written.ToUtf8().c_str());
                throw CFileException(CFileException::accessDenied, -1, m_tree->path,
                                     reason.ToUtf8());
            }
            SyncFolderOf(m_tree->path);
            // The lock held the old file; take it again on the new one.
            m_tree->lock.Abort();
            m_tree->lock.Open(m_tree->path, LockFlags(m_tree->shareFlags | CFile::modeReadWrite));
        }
    } catch (const CFileException& failure) {
        if (error)
            *error = failure;
        return false;
    }
    m_tree->hasSource = true;
    return true;
}

void CStorage::Revert() {
    std::shared_ptr<Node> committed;
    if (m_tree->hasSource) {
        try {
            committed = m_tree->inMemory
                            ? ReadTreeFromBytes(m_tree->bytes)
                            : ReadTreeFromDescriptor(m_tree->lock.Handle(), m_tree->path);
        } catch (const CFileException&) {
            // The committed file was read or written by us already; keep what is there.
            return;
        }
    }
    Node& root = *m_tree->root;
    for (const std::shared_ptr<Node>& child : root.children)
        Detach(*child);
    root.children =
        committed ? std::move(committed->children) : std::vector<std::shared_ptr<Node>>();
    root.classID = committed ? committed->classID : std::array<std::uint8_t, 16>{};
}

std::vector<std::uint8_t> CStorage::SaveToBytes() const {
    return WriteTreeToBytes(*m_tree->root, m_tree->path);
}

const std::vector<std::uint8_t>& CStorage::Bytes() const {
    return m_tree->bytes;
}

bool CStorage::IsRoot() const {
    return m_node == m_tree->root;
}

bool CStorage::CanWrite() const {
    return m_writable && !m_node->detached;
}

CString CStorage::GetFilePath() const {
    return m_tree->path;
}

std::array<std::uint8_t, 16> CStorage::GetClassID() const {
    return m_node->classID;
}

void CStorage::SetClassID(const std::array<std::uint8_t, 16>& classID) {
    if (!CanWrite())
        throw CFileException(CFileException::accessDenied, -1, m_node->name,
                             "the storage is open for reading only");
    m_node->classID = classID;
}

CStreamFile::~CStreamFile() {
    Abort();
}

bool CStreamFile::OpenStream(CStorage& storage, const CString& name, unsigned flags,
                             CFileException* error) {
    return Attach(storage, name, flags, false, error);
}

bool CStreamFile::CreateStream(CStorage& storage, const CString& name, unsigned flags,
                               CFileException* error) {
    return Attach(storage, name, flags, true, error);
}

bool CStreamFile::Attach(CStorage& storage, const CString& name, unsigned flags, bool create,
                         CFileException* error) {
    if (IsOpen())
        ThrowInvalidArgument("CStreamFile: a stream is open already");
    Node& parent = *storage.m_node;
    if (parent.detached)
        return Report(error, CFileException::invalidFile, name,
                      "the storage was removed or reverted");
    const bool writable = create || Writable(flags);
    if (writable && !storage.CanWrite())
        return Report(error, CFileException::accessDenied, name,
                      "the storage is open for reading only");
    std::shared_ptr<Node> node = FindChild(parent, name);
    if (node && node->isStorage)
        return Report(error, CFileException::accessDenied, name,
                      "the element is a storage, not a stream");
    if (node && node->openHandles > 0)
        return Report(error, CFileException::sharingViolation, name, "the stream is open");
    if (create) {
        if (const std::string problem = NameProblem(name); !problem.empty())
            return Report(error, CFileException::badPath, name, problem);
        if (node && !(flags & CFile::modeCreate))
            return Report(error, CFileException::accessDenied, name,
                          "an element of that name exists already");
        if (node) {
            node->bytes.clear();
        } else {
            node = std::make_shared<Node>();
            node->name = name;
            AddChild(parent, node);
        }
    } else if (!node) {
        return Report(error, CFileException::fileNotFound, name, "there is no such stream");
    }
    node->openHandles += 1;
    m_tree = storage.m_tree;
    m_node = std::move(node);
    m_writable = writable;
    m_position = 0;
    m_strFileName = m_node->name;
    return true;
}

std::unique_ptr<CStreamFile> CStreamFile::Clone() const {
    Stream();
    auto clone = std::make_unique<CStreamFile>();
    clone->m_tree = m_tree;
    clone->m_node = m_node;
    clone->m_writable = m_writable;
    clone->m_position = m_position;
    clone->m_strFileName = m_strFileName;
    m_node->openHandles += 1;
    return clone;
}

bool CStreamFile::Open(const CString& path, unsigned, CFileException* error) {
    return Report(error, CFileException::genericException, path,
                  "a stream is opened through its storage");
}

compound::Node& CStreamFile::Stream() const {
    if (m_node == nullptr)
        throw CFileException(CFileException::invalidFile, EBADF, m_strFileName);
    if (m_node->detached)
        throw CFileException(CFileException::invalidFile, -1, m_strFileName,
                             "the stream was removed or reverted");
    return *m_node;
}

void CStreamFile::RequireWritable() const {
    if (!m_writable)
        throw CFileException(CFileException::accessDenied, -1, m_strFileName,
                             "the stream is open for reading only");
}

unsigned CStreamFile::Read(void* buffer, unsigned count) {
    const std::vector<std::uint8_t>& bytes = Stream().bytes;
    if (m_position >= bytes.size())
        return 0;
    const std::size_t available =
        std::min<std::size_t>(count, bytes.size() - static_cast<std::size_t>(m_position));
    if (available > 0)
        std::memcpy(buffer, bytes.data() + m_position, available);
    m_position += available;
    return static_cast<unsigned>(available);
}

void CStreamFile::Write(const void* buffer, unsigned count) {
    std::vector<std::uint8_t>& bytes = Stream().bytes;
    RequireWritable();
    if (count == 0)
        return;
    if (m_position + count > c_maxStreamLength)
        throw CFileException(CFileException::diskFull, EFBIG, m_strFileName,
                             "a stream holds at most 4 GiB");
    // What lands past the end is appended, so that it is copied once and never zeroed first.
    const auto* in = static_cast<const std::uint8_t*>(buffer);
    const auto position = static_cast<std::size_t>(m_position);
    if (position > bytes.size())
        bytes.resize(position);
    const std::size_t inside = std::min<std::size_t>(count, bytes.size() - position);
    if (inside > 0)
        std::memcpy(bytes.data() + position, in, inside);
    bytes.insert(bytes.end(), in + inside, in + count);
    m_position += count;
}

unsigned long long CStreamFile::Seek(long long offset, SeekPosition from) {
    m_position = SeekTarget(offset, from, m_position, Stream().bytes.size(), c_maxStreamLength);
    return m_position;
}

unsigned long long CStreamFile::GetPosition() const {
    Stream();
    return m_position;
}

unsigned long long CStreamFile::GetLength() const {
    return Stream().bytes.size();
}

void CStreamFile::SetLength(unsigned long long length) {
    std::vector<std::uint8_t>& bytes = Stream().bytes;
    RequireWritable();
    if (length > c_maxStreamLength)
        throw CFileException(CFileException::diskFull, EFBIG, m_strFileName,
                             "a stream holds at most 4 GiB");
    bytes.resize(static_cast<std::size_t>(length));
}

void CStreamFile::Flush() {
    Stream();
}

void CStreamFile::Close() {
    Abort();
}

void CStreamFile::Abort() {
    if (m_node != nullptr)
        m_node->openHandles -= 1;
    m_node.reset();
    m_tree.reset();
    m_position = 0;
}

} // namespace keel
