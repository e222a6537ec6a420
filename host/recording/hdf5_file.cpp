#include "recording/formats.h"
#include "recording/target_file.h"

#include <QJsonDocument>

#include <array>
#include <hdf5.h>
#include <limits>
#include <string_view>
#include <utility>

namespace zrnrec
{
namespace
{

/// What a table has where a frame does not tell.
constexpr std::int64_t untold = std::numeric_limits<std::int64_t>::min();

/// Something of the HDF5 library's that is to be closed.
class Handle
{
public:
    using Close = herr_t (*)(hid_t);

    Handle() = default;
    Handle(hid_t id, Close closeIt)
        : m_id(id)
        , m_close(closeIt)
    {
    }
    ~Handle() { close(); }
    Handle(Handle&& other) noexcept
        : m_id(std::exchange(other.m_id, H5I_INVALID_HID))
        , m_close(other.m_close)
    {
    }
    Handle& operator=(Handle&& other) noexcept
    {
        std::swap(m_id, other.m_id);
        std::swap(m_close, other.m_close);
        return *this;
    }

    [[nodiscard]] hid_t id() const { return m_id; }
    /// @return whether there was nothing to close, or that went well
    bool close() { return m_id < 0 || m_close(std::exchange(m_id, H5I_INVALID_HID)) >= 0; }

private:
    hid_t m_id = H5I_INVALID_HID;
    Close m_close = nullptr;
};

/// The system's reason among what the library says of its last failure; empty without one.
std::string reasonOfFailure()
{
    std::string reason;
    const auto look = [](unsigned, const H5E_error2_t* error, void* found) -> herr_t {
        constexpr std::string_view before = "error message = '";
        const std::string_view text = error->desc ? error->desc : "";
        const std::size_t begin = text.find(before);
        if (begin != std::string_view::npos) {
            const std::string_view rest = text.substr(begin + before.size());
            *static_cast<std::string*>(found) = rest.substr(0, rest.find('\''));
        }
        return 0;
    };
    ::H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, look, &reason);
    return reason;
}

using Dimensions = std::vector<hsize_t>;

/// A dataset for each image and each column of the table.
class Hdf5File : public ExportTarget
{
public:
    explicit Hdf5File(const ExportJob& job)
        : m_job(job)
        , m_target(job.path)
    {
        // What cannot be written now could not be written at the end of the process either, where
        // the library would try for good.
        ::H5dont_atexit();
        ::H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        m_file = Handle(require(::H5Fcreate(m_target.temporaryPath().c_str(), H5F_ACC_TRUNC,
                                            H5P_DEFAULT, H5P_DEFAULT)),
                        ::H5Fclose);
        for (const char letter : job.stack.letters) {
            m_images.push_back(makeImages(letter));
        }
    }

    void write(const ExportFrame& frame) override
    {
        const Dimensions at = {m_facts.size(), 0, 0};
        constexpr std::uint32_t noFilter = 0;
        for (std::size_t i = 0; i < m_images.size(); ++i) {
            const auto pixels = frame.frame.stored.at(i).pixels();
            // A chunk as it lies in the file: the library neither copies nor looks at it.
            require(::H5Dwrite_chunk(m_images[i].id(), H5P_DEFAULT, noFilter, at.data(),
                                     pixels.size(), pixels.data()));
            m_target.noteWritten(pixels.size());
        }
        m_facts.push_back(frame.facts);
    }

    void finish() override
    {
        for (const Handle& images : m_images) {
            const Dimensions size = imageDimensions(m_facts.size());
            require(::H5Dset_extent(images.id(), size.data()));
        }
        for (const FrameColumn& column : frameColumns()) {
            writeColumn(column);
        }
        writeNotes();
        const hid_t file = m_file.id();
        setText(file, "recording", m_job.recording.file);
        writeText("metadata",
                  QJsonDocument(m_job.recording.metadata).toJson(QJsonDocument::Compact));
        setText(file, "serial",
                m_job.recording.metadata[QLatin1String("serial")].toString().toStdString());
        m_images.clear();
        require(::H5Fflush(file, H5F_SCOPE_LOCAL));
        if (!m_file.close()) {
            require(-1);
        }
        m_target.commit();
    }

private:
    /// @return @p result when it is one of success @throws zrn::Error
    template <typename Result>
    Result require(Result result) const
    {
        if (result < 0) {
            const std::string reason = reasonOfFailure();
            failToWrite(m_target.path(), reason.empty() ? "the HDF5 library refuses it" : reason);
        }
        return result;
    }

    [[nodiscard]] Dimensions imageDimensions(std::size_t frames) const
    {
        return {frames, m_job.stack.height, m_job.stack.width};
    }

    [[nodiscard]] Handle makeImages(char letter) const
    {
        const Dimensions size = imageDimensions(m_job.stack.positions.size());
        const Dimensions most = {H5S_UNLIMITED, size[1], size[2]};
        const Dimensions chunk = {1, size[1], size[2]};
        const Handle space(require(::H5Screate_simple(3, size.data(), most.data())), ::H5Sclose);
        const Handle properties(require(::H5Pcreate(H5P_DATASET_CREATE)), ::H5Pclose);
        require(::H5Pset_chunk(properties.id(), 3, chunk.data()));
        require(::H5Pset_fill_time(properties.id(), H5D_FILL_TIME_NEVER));
        Handle images(
            require(::H5Dcreate2(m_file.id(), std::string(1, letter).c_str(), H5T_STD_U8LE,
                                 space.id(), H5P_DEFAULT, properties.id(), H5P_DEFAULT)),
            ::H5Dclose);
        // What viewers know a picture by.
        setWord(images.id(), "CLASS", "IMAGE");
        setWord(images.id(), "IMAGE_VERSION", "1.2");
        setWord(images.id(), "IMAGE_SUBCLASS", "IMAGE_GRAYSCALE");
        return images;
    }

    /// Left out when no frame tells.
    void writeColumn(const FrameColumn& column) const
    {
        using Unit = FrameColumn::Unit;
        std::vector<std::int64_t> values;
        bool isTold = false;
        for (const FrameFacts& facts : m_facts) {
            const FrameFacts::Value value = column.valueOf(facts);
            isTold = isTold || value;
            values.push_back(value.value_or(untold));
        }
        if (!isTold) {
            return;
        }
        const hsize_t size = values.size();
        const Handle space(require(::H5Screate_simple(1, &size, nullptr)), ::H5Sclose);
        const Handle dataset(
            require(::H5Dcreate2(m_file.id(), column.name, H5T_STD_I64LE, space.id(), H5P_DEFAULT,
                                 H5P_DEFAULT, H5P_DEFAULT)),
            ::H5Dclose);
        require(::H5Dwrite(dataset.id(), H5T_NATIVE_INT64, H5S_ALL, H5S_ALL, H5P_DEFAULT,
                           values.data()));
        setText(dataset.id(), "meaning", column.meaning);
        if (column.unit != Unit::Count) {
            setText(dataset.id(), "units",
                    column.unit == Unit::Nanoseconds    ? "ns"
                    : column.unit == Unit::Microseconds ? "us"
                                                        : "ns since 1970-01-01T00:00:00Z");
        }
    }

    void writeNotes() const
    {
        std::vector<std::int64_t> times;
        std::vector<QByteArray> texts;
        std::vector<const char*> pointers;
        for (const NoteFacts& note : m_job.recording.notes) {
            times.push_back(note.time);
            texts.push_back(QJsonDocument(note.content).toJson(QJsonDocument::Compact));
            pointers.push_back(texts.back().constData());
        }
        const Handle group(
            require(::H5Gcreate2(m_file.id(), "notes", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)),
            ::H5Gclose);
        const hsize_t size = times.size();
        const Handle space(require(::H5Screate_simple(1, &size, nullptr)), ::H5Sclose);
        const Handle text = textType(H5T_VARIABLE);
        const std::array<std::tuple<const char*, hid_t, hid_t, const void*>, 2> columns = {
            std::tuple{"time", H5T_STD_I64LE, H5T_NATIVE_INT64, times.data()},
            std::tuple{"text", text.id(), text.id(), pointers.data()}};
        for (const auto& [name, stored, inMemory, values] : columns) {
            const Handle dataset(require(::H5Dcreate2(group.id(), name, stored, space.id(),
                                                      H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)),
                                 ::H5Dclose);
            if (size > 0) {
                require(::H5Dwrite(dataset.id(), inMemory, H5S_ALL, H5S_ALL, H5P_DEFAULT, values));
            }
        }
    }

    void writeText(const char* name, const QByteArray& text) const
    {
        const Handle type = textType(static_cast<std::size_t>(text.size()) + 1);
        const Handle space(require(::H5Screate(H5S_SCALAR)), ::H5Sclose);
        const Handle dataset(require(::H5Dcreate2(m_file.id(), name, type.id(), space.id(),
                                                  H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)),
                             ::H5Dclose);
        require(
            ::H5Dwrite(dataset.id(), type.id(), H5S_ALL, H5S_ALL, H5P_DEFAULT, text.constData()));
    }

    [[nodiscard]] Handle textType(std::size_t size) const
    {
        Handle type(require(::H5Tcopy(H5T_C_S1)), ::H5Tclose);
        require(::H5Tset_size(type.id(), size));
        require(::H5Tset_cset(type.id(), H5T_CSET_UTF8));
        return type;
    }

    void setText(hid_t object, const char* name, const std::string& text) const
    {
        const char* const value = text.c_str();
        setAttribute(object, name, textType(H5T_VARIABLE), &value);
    }

    /// Of fixed length, as the definition of pictures wants it.
    void setWord(hid_t object, const char* name, std::string_view word) const
    {
        Handle type(require(::H5Tcopy(H5T_C_S1)), ::H5Tclose);
        require(::H5Tset_size(type.id(), word.size() + 1));
        setAttribute(object, name, type, word.data());
    }

    void setAttribute(hid_t object, const char* name, const Handle& type, const void* value) const
    {
        const Handle space(require(::H5Screate(H5S_SCALAR)), ::H5Sclose);
        const Handle attribute(
            require(::H5Acreate2(object, name, type.id(), space.id(), H5P_DEFAULT, H5P_DEFAULT)),
            ::H5Aclose);
        require(::H5Awrite(attribute.id(), type.id(), value));
    }

    const ExportJob m_job;
    TargetFile m_target;
    Handle m_file;
    std::vector<Handle> m_images;
    std::vector<FrameFacts> m_facts;
};

} // namespace

std::unique_ptr<ExportTarget> makeHdf5File(const ExportJob& job)
{
    return std::make_unique<Hdf5File>(job);
}

} // namespace zrnrec
