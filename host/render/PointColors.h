// Gives points of a cloud the colours of a picture.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/render/PointCanvas.h"

namespace tarnhost {

enum class ColorMode : std::uint8_t {
  kBest,  ///< the scan's own colours where it has some, else elevation
  kRgb,
  kIntensity,
  kClassification,
  kElevation,
  kReturn,
};

/// The values of a run of points that colours are made from.
struct PointValues {
  std::vector<double> positions;                   ///< local frame, three per point
  std::vector<std::vector<std::uint8_t>> columns;  ///< those of PointColors::GetColumns
};

/// Const operations are safe from several threads at once.
class PointColors {
 public:
  /// Finds the columns that a mode needs. kPictureRefused when the cloud does not have them.
  static Outcome Find(const Cloud& cloud, ColorMode mode, PointColors& colors);

  [[nodiscard]] const std::vector<std::string>& GetColumns() const { return columns_; }
  /// Learns from a sample of the points which range of values to spread over the colours.
  void Learn(const PointValues& sample);
  /// The colour of each point.
  void Color(const PointValues& values, std::vector<Rgb>& colors) const;

 private:
  Outcome Need(const Cloud& cloud, const char* column, std::uint8_t components);
  [[nodiscard]] double ValueOf(const PointValues& values, std::size_t column, std::size_t point,
                               unsigned component) const;
  [[nodiscard]] Rgb ColorOf(const PointValues& values, std::size_t point) const;
  [[nodiscard]] Rgb ScanColorOf(const PointValues& values, std::size_t point) const;
  void LearnScanColors(const PointValues& sample, std::size_t count);

  ColorMode mode_ = ColorMode::kElevation;
  bool mayBeBlack_ = true;  ///< the user asked for the scan's own colours
  std::vector<std::string> columns_;
  std::vector<oocpc::ColumnType> types_;
  double least_ = 0;
  double greatest_ = 1;
  /// What the shares of scan colours become, in steps of 1/1023.
  std::vector<std::uint8_t> tones_;
};

}  // namespace tarnhost
