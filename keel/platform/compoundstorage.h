#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/file.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace keel {

namespace compound {
struct Node;
struct Tree;
} // namespace compound

// One element of a storage, as EnumElements lists it.
struct CStorageElement {
    enum Type { typeStorage = 1, typeStream = 2 };

    CString m_strName;
    Type m_type = typeStream;
    // The bytes of a stream; 0 for a storage.
    unsigned long long m_size = 0;
};

// A storage of a compound file (structured storage): the root of the file or a storage nested in
// it. The whole tree is read when the file is opened and lives in memory; every change is made
// there and reaches the disk only when the file is committed, which writes a whole new file beside
// the old one, reads it back to check it, and renames it over the old one. Until then, and when
// anything in that fails, the file on disk stays as it was.
//
// The open modes are the CFile flags, whose values are those of the structured storage: 0x1012
// creates (replacing an element of the same name) for reading and writing, share-exclusive; 0x10
// opens for reading, share-exclusive. A storage opened for reading refuses every change in it,
// and so does every storage of a file opened for reading. A failure
// returns false or null and, when `error` is given, describes it there; an element that is not
// there is a fileNotFound failure, a name already taken (without modeCreate) or a change refused
// accessDenied, a name the format cannot hold badPath, a file that is not a compound file or is
// damaged invalidFile.
//
// Element names are compared without regard to case, as the format does, and keep the case they
// were created with. A name holds at most 31 UTF-16 units and none of "/\:!".
class CStorage {
public:
    enum CommitFlags : unsigned {
        commitDefault = 0,
        commitOverwrite = 1,
        commitOnlyIfCurrent = 2,
        commitDangerouslyToDiskCache = 4,
        commitConsolidate = 8,
    };

    // What a file read from outside may hold: nesting of storages, elements in all.
    static constexpr int c_maxDepth = 32;
    static constexpr unsigned long long c_maxElements = 1u << 20;
    static constexpr unsigned c_maxNameLength = 31;

    ~CStorage();
    CStorage(const CStorage&) = delete;
    CStorage& operator=(const CStorage&) = delete;

    // The root of the compound file at `path`. The file stays open, holding the sharing mode of
    // `flags` against other openers of this library, until the root and every handle in the tree
    // are gone.
    static std::unique_ptr<CStorage> OpenFile(const CString& path, unsigned flags,
                                              CFileException* error = nullptr);
    // A new, empty root for `path`; the file is written at the first commit. Without modeCreate
    // an existing file is refused.
    static std::unique_ptr<CStorage> CreateFile(const CString& path, unsigned flags,
                                                CFileException* error = nullptr);
    // A root over the bytes of a compound file, or a new one in memory when `bytes` is empty.
    // Committing keeps the written file's bytes (Bytes).
    static std::unique_ptr<CStorage> OpenBytes(std::vector<std::uint8_t> bytes, unsigned flags,
                                               CFileException* error = nullptr);

    std::unique_ptr<CStorage> OpenStorage(const CString& name, unsigned flags,
                                          CFileException* error = nullptr);
    std::unique_ptr<CStorage> CreateStorage(const CString& name, unsigned flags,
                                            CFileException* error = nullptr);
    // Removes a stream or a storage with all it holds. Handles open on it fail from then on.
    bool DestroyElement(const CString& name, CFileException* error = nullptr);
    // The elements in the order of the format: shorter names first, then by the names in
    // capitals.
    std::vector<CStorageElement> EnumElements() const;

    // Writes the whole file, whichever storage of it is asked. The flags are accepted as the
    // format defines them and change nothing here: every commit writes a whole, consolidated
    // file and replaces the old one.
    bool Commit(unsigned flags, CFileException* error = nullptr);
    // Drops every change since the file was opened or last committed. Handles open inside the
    // tree fail from then on; the storage itself stays usable.
    void Revert();

    // The whole tree as the bytes of a compound file; throws CFileException when libgsf cannot
    // write it.
    std::vector<std::uint8_t> SaveToBytes() const;
    // The bytes of a root made by OpenBytes, as last committed.
    const std::vector<std::uint8_t>& Bytes() const;

    bool IsRoot() const;
    bool CanWrite() const;
    // The path of the file; empty for one in memory.
    CString GetFilePath() const;
    // The class id of the storage (16 bytes, zero unless set or read).
    std::array<std::uint8_t, 16> GetClassID() const;
    void SetClassID(const std::array<std::uint8_t, 16>& classID);

private:
    friend class CStreamFile;
    CStorage(std::shared_ptr<compound::Tree> tree, std::shared_ptr<compound::Node> node,
             bool writable);

    std::shared_ptr<compound::Tree> m_tree;
    std::shared_ptr<compound::Node> m_node;
    bool m_writable;
};

// A stream of a storage as a CFile, so that a CArchive runs over it. Each handle keeps its own
// position; Clone gives a second handle on the same bytes. Reading past the end gives fewer
// bytes; writing past it grows the stream, filling a gap left by a seek with zeros.
class CStreamFile : public CFile {
public:
    CStreamFile() = default;
    ~CStreamFile() override;

    bool OpenStream(CStorage& storage, const CString& name, unsigned flags,
                    CFileException* error = nullptr);
    // With modeCreate an existing stream of that name is emptied; without it, it is refused.
    bool CreateStream(CStorage& storage, const CString& name, unsigned flags,
                      CFileException* error = nullptr);
    // A second handle on the same stream, at the same position, with the same access.
    std::unique_ptr<CStreamFile> Clone() const;

    // A stream has no path of its own to open.
    bool Open(const CString& path, unsigned flags, CFileException* error = nullptr) override;
    unsigned Read(void* buffer, unsigned count) override;
    void Write(const void* buffer, unsigned count) override;
    unsigned long long Seek(long long offset, SeekPosition from) override;
    unsigned long long GetPosition() const override;
    unsigned long long GetLength() const override;
    void SetLength(unsigned long long length) override;
    void Flush() override;
    void Close() override;
    void Abort() override;
    bool IsOpen() const override { return m_node != nullptr; }

private:
    bool Attach(CStorage& storage, const CString& name, unsigned flags, bool create,
                CFileException* error);
    compound::Node& Stream() const;
    void RequireWritable() const;

    std::shared_ptr<compound::Tree> m_tree;
    std::shared_ptr<compound::Node> m_node;
    bool m_writable = false;
    unsigned long long m_position = 0;
};

} // namespace keel
