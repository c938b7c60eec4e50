#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Events.h"
#include "WatchState.h"

namespace dmf::usb {

/// The watching thread's own: keeps a picture of the tree, by events where the system tells them and by walking through
/// the tree every two seconds where it does not.
class Looker {
public:
    explicit Looker(WatchState& state) : state_(state) {}
    /// Until the watch ends.
    void run();

private:
    using Places = std::set<std::string>;

    /// Of the devices named, or of all, and which there are.
    void look(const Places* changed);
    void readPlace(const std::string& place);
    void meet(AttachedDevice device);
    void forget(const std::string& place);
    [[nodiscard]] Places takeEvents(bool& all);
    void takeAnswers();
    void askIfFree(Sighting& sighting);
    void complete(Sighting& sighting);
    [[nodiscard]] Identity withoutDouble(const Sighting& sighting, Identity identity) const;
    void showIfChanged();
    [[nodiscard]] Dictionary trouble() const;

    WatchState& state_;
    Events events_;
    bool hasTree_ = false;
    Sightings devices_;
    std::set<std::uint64_t> asked_; ///< sightings whose device has had its question
    /// Devices that are told gone while the tree still shows them, by place: their addresses.
    std::map<std::string, int> departed_;
    std::uint64_t lastNumber_ = 0;
    bool hasShown_ = false;
    Sightings shown_;
    Dictionary shownTrouble_;
};

} // namespace dmf::usb
