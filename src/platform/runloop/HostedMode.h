#pragma once

#include <glib.h>

#include <memory>
#include <utility>

#include "platform/runloop/RunLoopMode.h"

namespace dmf::internal {

/// A mode that a main context turns, so that a loop of the host's own turns it too: one GSource looks after all of its
/// items. Nothing is handed over between threads by way of GLib.
class HostedMode final : public RunLoopMode {
public:
    /// Takes over the reference to `context`.
    [[nodiscard]] static std::shared_ptr<HostedMode> create(GMainContext* context);
    explicit HostedMode(GMainContext* context);
    ~HostedMode() override;

    void end() override;
    void turn(RunFrame& frame, bool mayWait) override;
    RunFrame* setFrame(RunFrame* frame) noexcept override;

private:
    struct Source;
    static gboolean prepare(GSource* source, gint* timeout);
    static gboolean check(GSource* source);
    static gboolean dispatch(GSource* source, GSourceFunc function, gpointer data) noexcept;
    static void finalize(GSource* source);
    static HostedMode& of(GSource* source) noexcept;
    void attach();
    void endWait() override;
    /// The run that turns the context now, from a call at GLib's `depth`; none inside a loop of the host's own that one
    /// of the run's callbacks turns: the run's end and limit are no affair of that loop.
    [[nodiscard]] RunFrame* turningFrame(int depth) const noexcept;

    GMainContext* const context_;
    GSource* source_ = nullptr; // for the thread that makes the mode and the one that ends it
    RunFrame* frame_ = nullptr; // for the run loop's thread
};

} // namespace dmf::internal
