#pragma once

#include <chrono>
#include <cstdint>
#include <gst/gst.h>
#include <memory>
#include <string>
#include <utility>

/// Gives back a reference to a message, sample, query or caps.
struct Unref {
    void operator()(gpointer object) const { gst_mini_object_unref(GST_MINI_OBJECT_CAST(object)); }
};
using MessagePtr = std::unique_ptr<GstMessage, Unref>;
using SamplePtr = std::unique_ptr<GstSample, Unref>;
using CapsPtr = std::unique_ptr<GstCaps, Unref>;
using QueryPtr = std::unique_ptr<GstQuery, Unref>;

/// For a machine that is busy with other things.
inline constexpr std::chrono::seconds patience(60);

/// A pipeline as gst-launch-1.0 takes it. Ends with its owner.
class Pipeline
{
public:
    /// Fails the running test when the text is wrong.
    explicit Pipeline(const std::string& description);
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    [[nodiscard]] GstElement* get() const { return m_pipeline; }
    /// An element by its name; lives as long as the pipeline.
    [[nodiscard]] GstElement* element(const char* name) const;

    GstStateChangeReturn setState(GstState state);
    void play();

    /// The next message of these types; null when none came for so long.
    MessagePtr message(GstMessageType types, std::chrono::milliseconds longest = patience);
    /// Waits for the end of the stream. @return what is wrong; empty when it ended well
    std::string runToEnd();
    /// Waits for an error and gives its text; empty when none came.
    std::string errorText();
    /// Waits for the element message of this event.
    bool waitForEvent(const std::string& event);
    /// Takes a sample from an appsink; null at the end of its stream, and when none came.
    SamplePtr pull(const char* sink, std::chrono::milliseconds longest = patience);

private:
    GstElement* m_pipeline;
};

/// Text and details of an error or warning.
std::string textOf(GstMessage* message);

/// The running time and the count of a QoS message.
std::pair<GstClockTime, std::uint64_t> lossOf(GstMessage* message);
