// Gives points of a cloud the colours of a picture.
#include "host/render/PointColors.h"

#include <algorithm>
#include <cmath>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "OOCPointCloud/support/Bytes.h"
#include "host/render/ColorRamps.h"

namespace tarnhost {

namespace {

/// Shares of the sample that may lie outside the range of colours, so that a few outliers do not
/// take all contrast away.
constexpr double kOutliers = 0.005;
constexpr double kBrightOutliers = 0.01;
/// Scan colours are made brighter up to this many times.
constexpr double kMostGain = 2.5;
constexpr double kFullColor = 65535;
constexpr double kFullByte = 255;
/// Half of the points are to be at least this bright, as far as that is reached by a curve that is
/// no steeper than this exponent.
constexpr double kMediumTone = 0.5;
constexpr double kStrongestLift = 0.55;
constexpr std::size_t kTones = 1023;

/// The value below which a share of the values lies; sorts as far as it has to.
double Quantile(std::vector<double>& values, double share) {
  if (values.empty()) return 0;
  const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

}  // namespace

Outcome PointColors::Find(const Cloud& cloud, ColorMode mode, PointColors& colors) {
  colors = {};
  colors.mode_ = mode;
  switch (mode) {
    case ColorMode::kBest:
      colors.mayBeBlack_ = false;
      colors.mode_ =
          colors.Need(cloud, "DEF_COLOR", 3).Ok() ? ColorMode::kRgb : ColorMode::kElevation;
      return Outcome::Success();
    case ColorMode::kRgb:
      return colors.Need(cloud, "DEF_COLOR", 3);
    case ColorMode::kIntensity:
      return colors.Need(cloud, "intensity", 1);
    case ColorMode::kClassification:
      return colors.Need(cloud, "classification", 1);
    case ColorMode::kReturn: {
      Outcome outcome = colors.Need(cloud, "return_number", 1);
      return outcome.Ok() ? colors.Need(cloud, "number_of_returns", 1) : outcome;
    }
    case ColorMode::kElevation:
      break;
  }
  return Outcome::Success();
}

Outcome PointColors::Need(const Cloud& cloud, const char* column, std::uint8_t components) {
  const auto found = std::ranges::find(cloud.GetColumns(), column, &CloudColumn::name);
  if (found == cloud.GetColumns().end() || found->type.components != components) {
    return Outcome::Failure(
        oocpc::result::kPictureRefused, std::string("the cloud has no values of ") + column,
        cloud.GetPath().string(), "choose other colours; tarn info lists what there is");
  }
  columns_.emplace_back(column);
  types_.push_back(found->type);
  return Outcome::Success();
}

double PointColors::ValueOf(const PointValues& values, std::size_t column, std::size_t point,
                            unsigned component) const {
  const std::size_t index = point * types_[column].components + component;
  const std::uint8_t* bytes = values.columns[column].data();
  return oocpc::VisitComponentType(types_[column].value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    return static_cast<double>(oocpc::LoadLittleEndian<T>(bytes + index * sizeof(T)));
  });
}

void PointColors::Learn(const PointValues& sample) {
  const std::size_t count = sample.positions.size() / 3;
  if (mode_ == ColorMode::kRgb) tones_.assign(kTones + 1, 0);
  if (mode_ == ColorMode::kRgb && count > 0) LearnScanColors(sample, count);
  std::vector<double> numbers;
  for (std::size_t i = 0; i < count; ++i) {
    if (mode_ == ColorMode::kElevation) numbers.push_back(sample.positions[3 * i + 2]);
    if (mode_ == ColorMode::kIntensity) numbers.push_back(ValueOf(sample, 0, i, 0));
  }
  std::erase_if(numbers, [](double number) { return !std::isfinite(number); });
  if (numbers.empty()) return;
  least_ = Quantile(numbers, kOutliers);
  greatest_ = Quantile(numbers, 1 - kOutliers);
}

void PointColors::LearnScanColors(const PointValues& sample, std::size_t count) {
  std::vector<double> brightest(count);
  double most = 0;
  for (std::size_t i = 0; i < count; ++i) {
    for (unsigned component = 0; component < 3; ++component) {
      brightest[i] = std::max(brightest[i], ValueOf(sample, 0, i, component));
    }
    most = std::max(most, brightest[i]);
  }
  if (most == 0 && !mayBeBlack_) {
    mode_ = ColorMode::kElevation;
    columns_.clear();
    types_.clear();
    return;
  }
  // Many programs write 8-bit colours into the 16-bit fields.
  const bool isReal =
      types_[0].value == oocpc::ValueType::kFloat || types_[0].value == oocpc::ValueType::kDouble;
  const double wide = most <= kFullByte ? kFullByte : kFullColor;
  const double full = isReal && most <= 1 ? 1 : wide;  // shares, as formats with floats have them
  const double bright = std::max(Quantile(brightest, 1 - kBrightOutliers), full / kMostGain);
  least_ = 0;
  greatest_ = std::min(bright, full);
  // Dark scans are lifted so that their medium tones come out as such.
  const double medium = std::clamp(Quantile(brightest, 0.5) / greatest_, 0.05, 1.0);
  const double gamma = medium < kMediumTone ? std::log(kMediumTone) / std::log(medium) : 1.0;
  tones_.resize(kTones + 1);
  for (std::size_t i = 0; i < tones_.size(); ++i) {
    const double share = static_cast<double>(i) / kTones;
    const double tone = std::pow(share, std::max(gamma, kStrongestLift));
    tones_[i] = static_cast<std::uint8_t>(std::lround(255 * tone));
  }
}

Rgb PointColors::ScanColorOf(const PointValues& values, std::size_t point) const {
  unsigned parts[3];
  for (unsigned component = 0; component < 3; ++component) {
    const double share = ValueOf(values, 0, point, component) / greatest_;
    parts[component] = tones_[static_cast<std::size_t>(std::clamp(share, 0.0, 1.0) * kTones)];
  }
  return MakeRgb(parts[0], parts[1], parts[2]);
}

Rgb PointColors::ColorOf(const PointValues& values, std::size_t point) const {
  const auto share = [&](double number) {
    return greatest_ > least_ ? (number - least_) / (greatest_ - least_) : 0.5;
  };
  switch (mode_) {
    case ColorMode::kRgb:
      return ScanColorOf(values, point);
    case ColorMode::kIntensity:
      // Intensities are crowded at the dark end.
      return GreyColor(std::sqrt(std::max(0.0, share(ValueOf(values, 0, point, 0)))));
    case ColorMode::kClassification:
      return ClassificationColor(static_cast<std::uint64_t>(ValueOf(values, 0, point, 0)));
    case ColorMode::kReturn:
      return ReturnColor(static_cast<std::uint64_t>(ValueOf(values, 0, point, 0)),
                         static_cast<std::uint64_t>(ValueOf(values, 1, point, 0)));
    default:
      return ElevationColor(share(values.positions[3 * point + 2]));
  }
}

void PointColors::Color(const PointValues& values, std::vector<Rgb>& colors) const {
  colors.resize(values.positions.size() / 3);
  for (std::size_t i = 0; i < colors.size(); ++i) colors[i] = ColorOf(values, i);
}

}  // namespace tarnhost
