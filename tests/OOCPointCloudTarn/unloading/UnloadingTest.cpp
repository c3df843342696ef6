// What the library leaves behind when it is unloaded after use, by a program that is not linked to
// it, as the example of a host uses it.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "examples/host/TarnLibrary.h"
#include "tests/support/Modules.h"
#include "tests/support/PlainStreams.h"

namespace {

using oocpctest::CountThreads;
using oocpctest::IsLoaded;
using oocpctest::ProcessState;

/// Loads the library, reads a repository, and reads query texts of which one makes no sense.
void UseTheLibrary() {
  const TarnLibrary library(TARN_LIBRARY);
  ASSERT_TRUE(library.IsUsable());
  const auto cloud = library.MakeCloud();
  ASSERT_EQ((*cloud.*library.attach)(new OOCPCMemoryRepository(oocpctest::MakePlainStreams())),
            oocpc::result::kOk);
  ASSERT_EQ((*cloud.*library.getIterationCount)(), 1u);
  OOCPCOctreeAcceleratorNode root;
  ASSERT_EQ((*cloud.*library.getRoot)(0, root), oocpc::result::kOk);
  EXPECT_EQ(root.ownPointCount, 4u);
  for (const char* text : {"#num{type=int}(\"a\", >, 1)", "#nonsense("}) {
    const auto expression = library.MakeExpression();
    (*expression.*library.setText)(text);
    (*expression.*library.setCloud)(cloud.get());
    const bool makesSense = !oocpc::Failed(expression->ComputeBooleanAST());
    EXPECT_EQ(makesSense, text[1] == 'n' && text[2] == 'u') << text;
  }
}

TEST(Unloading, LeavesNothingOfWhatTheLibraryDid) {
  ASSERT_FALSE(IsLoaded(TARN_LIBRARY));
  { SCOPED_TRACE("the first one, for which the test library may start a thread"); }
  const std::size_t threads = CountThreads();
  UseTheLibrary();
  // What the first use of the language's runtime sets up in this program stays its own.
  const ProcessState after;
  EXPECT_EQ(after.threads, threads);
  for (int round = 0; round < 5; ++round) {
    UseTheLibrary();
    ASSERT_FALSE(IsLoaded(TARN_LIBRARY));
    EXPECT_EQ(ProcessState(), after) << round;
  }
}

}  // namespace
