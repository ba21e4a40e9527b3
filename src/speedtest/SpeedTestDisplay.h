#pragma once

#include <QString>

#include <cstdint>

namespace skylet {

/// An opaque colour, each part from 0 to 1, in sRGB.
struct GaugeColor {
    double red = 0;
    double green = 0;
    double blue = 0;
    friend bool operator==(const GaugeColor&, const GaugeColor&) = default;
};

inline constexpr GaugeColor downloadColor{0.2, 0.83, 0.45};
inline constexpr GaugeColor uploadColor{0.35, 0.62, 1.0};

/// The three result columns, from left to right.
enum class ResultColumn : std::uint8_t { https, download, upload };

/// Where a measurement shows how it goes. Speeds in Mbit/s; texts as they are to stand.
class SpeedTestDisplay {
  public:
    virtual ~SpeedTestDisplay() = default;
    virtual void setResult(ResultColumn column, const QString& text) = 0;
    virtual void setRunEnabled(bool enabled) = 0;
    virtual void setGaugePhase(const QString& phase) = 0;
    virtual void setGaugeAccent(const GaugeColor& accent) = 0;
    /// The gauge moves there smoothly.
    virtual void setGaugeTarget(double speed) = 0;
    /// The gauge stands there at once.
    virtual void setGaugeValue(double speed) = 0;
    /// The needle stays where it is.
    virtual void stopGaugeAnimation() = 0;
};

} // namespace skylet
