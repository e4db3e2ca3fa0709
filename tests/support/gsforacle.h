#pragma once

#include <cstdint>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-input.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-output.h>
#include <gsf/gsf-utils.h>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace keel::test {

// A compound file as libgsf alone reads and writes it, for checking our own reader and writer
// against it. Elements are keyed by their path from the root, names joined with '/' (which no
// element name may hold); names are UTF-8 as libgsf gives them.
struct GsfElement {
    bool isStorage = false;
    std::vector<std::uint8_t> bytes;
    friend bool operator==(const GsfElement&, const GsfElement&) = default;
};
using GsfTree = std::map<std::string, GsfElement>;

namespace gsforacle {

struct Unref {
    void operator()(void* object) const {
        if (object)
            g_object_unref(object);
    }
};
template <class T>
using Ptr = std::unique_ptr<T, Unref>;

inline void Initialise() {
    static const bool initialised = (gsf_init(), true);
    (void)initialised;
}

inline void ReadStorage(GsfInfile* storage, const std::string& prefix, GsfTree& tree) {
    for (int index = 0; index < gsf_infile_num_children(storage); ++index) {
        const std::string path = prefix + gsf_infile_name_by_index(storage, index);
        Ptr<GsfInput> child(gsf_infile_child_by_index(storage, index));
        if (!child)
            throw std::runtime_error("libgsf cannot open " + path);
        GsfElement& element = tree[path];
        if (GSF_IS_INFILE(child.get()) && gsf_infile_num_children(GSF_INFILE(child.get())) >= 0) {
            element.isStorage = true;
            ReadStorage(GSF_INFILE(child.get()), path + "/", tree);
            continue;
        }
        element.bytes.resize(static_cast<std::size_t>(gsf_input_size(child.get())));
        if (!element.bytes.empty() &&
            !gsf_input_read(child.get(), element.bytes.size(), element.bytes.data()))
            throw std::runtime_error("libgsf cannot read " + path);
    }
}

// Writes the elements directly under `prefix`; storages named by the paths of their elements
// only are made too.
inline void WriteStorage(GsfOutfile* outfile, const std::string& prefix, const GsfTree& tree) {
    std::map<std::string, bool> children;
    for (const auto& [path, element] : tree) {
        if (path.compare(0, prefix.size(), prefix) != 0 || path.size() == prefix.size())
            continue;
        const std::string rest = path.substr(prefix.size());
        const std::size_t slash = rest.find('/');
        if (slash == std::string::npos)
            children[rest] = children[rest] || element.isStorage;
        else
            children[rest.substr(0, slash)] = true;
    }
    for (const auto& [name, isStorage] : children) {
        Ptr<GsfOutput> child(gsf_outfile_new_child(outfile, name.c_str(), isStorage));
        if (!child)
            throw std::runtime_error("libgsf cannot make " + prefix + name);
        if (isStorage) {
            WriteStorage(GSF_OUTFILE(child.get()), prefix + name + "/", tree);
        } else {
            const std::vector<std::uint8_t>& bytes = tree.at(prefix + name).bytes;
            if (!bytes.empty() && !gsf_output_write(child.get(), bytes.size(), bytes.data()))
                throw std::runtime_error("libgsf cannot write " + prefix + name);
        }
        gsf_output_close(child.get());
    }
}

} // namespace gsforacle

// Every element of the compound file in `bytes`; std::runtime_error when libgsf refuses it.
inline GsfTree ReadWithGsf(const std::vector<std::uint8_t>& bytes) {
    gsforacle::Initialise();
    gsforacle::Ptr<GsfInput> input(
        gsf_input_memory_new(bytes.data(), static_cast<gsf_off_t>(bytes.size()), FALSE));
    GError* error = nullptr;
    gsforacle::Ptr<GsfInfile> infile(input ? gsf_infile_msole_new(input.get(), &error) : nullptr);
    if (!infile) {
        const std::string message = error ? error->message : "no input";
        if (error)
            g_error_free(error);
        throw std::runtime_error("libgsf refuses the file: " + message);
    }
    GsfTree tree;
    gsforacle::ReadStorage(infile.get(), "", tree);
    return tree;
}

// A compound file holding the elements, written by libgsf alone.
inline std::vector<std::uint8_t> WriteWithGsf(const GsfTree& tree) {
    gsforacle::Initialise();
    gsforacle::Ptr<GsfOutput> sink(gsf_output_memory_new());
    {
        gsforacle::Ptr<GsfOutfile> outfile(gsf_outfile_msole_new(sink.get()));
        gsforacle::WriteStorage(outfile.get(), "", tree);
        gsf_output_close(GSF_OUTPUT(outfile.get()));
    }
    const guint8* data = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink.get()));
    return std::vector<std::uint8_t>(data, data + gsf_output_size(sink.get()));
}

} // namespace keel::test
