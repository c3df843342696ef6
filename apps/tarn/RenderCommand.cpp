// tarn render
#include <charconv>
#include <map>
#include <memory>

#include "apps/tarn/Arguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/IterationChoice.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/OutputFile.h"
#include "host/common/System.h"
#include "host/render/Render.h"

namespace tarnapp {

namespace {

struct RenderArguments {
  std::string repository;
  std::string output;
  std::string size = "1600x1000";
  std::vector<double> eye;
  std::vector<double> target;
  tarnhost::RenderOptions options;
  IterationChoice iteration;
  bool overwrite = false;
  bool quiet = false;
};

/// A number such as 1600 at the beginning of a text, which it is taken from.
bool TakeNumber(std::string_view& text, std::uint64_t& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return true;
}

/// "1600x1000" as width and height.
bool ParsePictureSize(std::string_view text, tarnhost::PictureSize& size) {
  std::uint64_t width = 0;
  std::uint64_t height = 0;
  if (!TakeNumber(text, width) || text.empty() || text.front() != 'x') return false;
  text.remove_prefix(1);
  if (!TakeNumber(text, height) || !text.empty()) return false;
  if (width == 0 || height == 0 || width > tarnhost::kMostPixels ||
      height > tarnhost::kMostPixels) {
    return false;
  }
  size = {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  return true;
}

CLI::Validator IsPictureSize() {
  return {[](const std::string& text) {
            tarnhost::PictureSize size;
            return ParsePictureSize(text, size)
                       ? std::string()
                       : "\"" + text + "\" is no size such as 1600x1000, each from 1 to " +
                             std::to_string(tarnhost::kMostPixels);
          },
          ""};
}

int Run(RenderArguments& arguments) {
  tarnhost::RenderOptions& options = arguments.options;
  ParsePictureSize(arguments.size, options.size);
  if (!arguments.eye.empty()) {
    options.viewpoint.emplace();
    std::copy_n(arguments.eye.begin(), 3, options.viewpoint->eye.begin());
    std::copy_n(arguments.target.begin(), 3, options.viewpoint->target.begin());
  }
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome =
      tarnhost::CheckOutput(tarnhost::PathOf(arguments.output), arguments.overwrite);
  if (outcome.Ok()) outcome = tarnhost::Cloud::Open(tarnhost::PathOf(arguments.repository), cloud);
  if (!outcome.Ok()) return ReportFailure(outcome);
  outcome = ChooseIteration(*cloud, arguments.iteration, options.iteration);
  if (!outcome.Ok()) return ReportFailure(outcome);
  options.progress = ShowProgress(arguments.quiet);
  tarnhost::Picture picture;
  tarnhost::RenderReport report;
  outcome = tarnhost::RenderPicture(*cloud, options, picture, report);
  options.progress = {};
  if (outcome.Ok()) outcome = tarnhost::WritePng(picture, tarnhost::PathOf(arguments.output));
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s of %s points drawn to %s (%u x %u)\n", Grouped(report.drawnPoints).c_str(),
                Grouped(report.pointCount).c_str(), arguments.output.c_str(), picture.size.width,
                picture.size.height);
    if (!options.query.empty()) {
      std::printf("%s of them are selected\n", Grouped(report.selectedPoints).c_str());
    }
  }
  return kDone;
}

const std::map<std::string, tarnhost::View>& Views() {
  static const std::map<std::string, tarnhost::View> views{{"top", tarnhost::View::kTop},
                                                           {"front", tarnhost::View::kFront},
                                                           {"side", tarnhost::View::kSide},
                                                           {"iso", tarnhost::View::kIso}};
  return views;
}

const std::map<std::string, tarnhost::ColorMode>& Colors() {
  using tarnhost::ColorMode;
  static const std::map<std::string, ColorMode> colors{
      {"rgb", ColorMode::kRgb},
      {"intensity", ColorMode::kIntensity},
      {"classification", ColorMode::kClassification},
      {"elevation", ColorMode::kElevation},
      {"return", ColorMode::kReturn}};
  return colors;
}

void AddViewOptions(CLI::App& command, RenderArguments& arguments) {
  CLI::Option* view =
      command
          .add_option("--view", arguments.options.view,
                      "top, front (from the south), side (from the east) or iso (from the\n"
                      "south-west and above, the default)")
          ->transform(IsOneOf(Views()));
  CLI::Option* eye =
      command
          .add_option("--eye", arguments.eye, "Where the eye is, in the scan's coordinates: x,y,z")
          ->delimiter(',')
          ->expected(3)
          ->excludes(view);
  CLI::Option* target = command.add_option("--target", arguments.target, "Where it looks: x,y,z")
                            ->delimiter(',')
                            ->expected(3)
                            ->needs(eye);
  eye->needs(target);
}

}  // namespace

void AddRender(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<RenderArguments>();
  CLI::App* command = app.add_subcommand("render", "Make a picture of a cloud");
  command->footer(
      "Examples:\n"
      "  tarn render street.tarn -o street.png\n"
      "  tarn render street.tarn -o plan.png --view top --color elevation --size 2400x2400\n"
      "  tarn render street.tarn -o roofs.png --select '#num{type=int}(\"classification\", ==, "
      "6)'");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_option("-o,--output", arguments->output, "The PNG file to write")
      ->required()
      ->check(EndsIn({".png"}));
  AddOverwriteOption(*command, arguments->overwrite);
  command->add_option("--size", arguments->size, "Width and height in pixels; default 1600x1000")
      ->check(IsPictureSize());
  AddViewOptions(*command, *arguments);
  command
      ->add_option("--color", arguments->options.color,
                   "rgb, intensity, classification, elevation or return; default rgb where the\n"
                   "scan has colours, else elevation")
      ->transform(IsOneOf(Colors()));
  command
      ->add_option("--points", arguments->options.pointBudget,
                   "About the most points to draw, such as 800k, the coarsest level always;\n"
                   "default 3M")
      ->transform(IsCount(1));
  command
      ->add_option("--select", arguments->options.query,
                   "Let the points that this query selects stand out")
      ->check(IsNotEmpty());
  command->add_flag("--local", arguments->options.local,
                    "The query's constants are in the repository's local frame");
  AddIterationOptions(*command, arguments->iteration);
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
