// Names of uploads, and whose they are.
#include "leftovers.h"

#include <gmock/gmock.h>

#include "transfer_fixture.h"

namespace {

using TAVOCloud::AsidePathBeside;
using TAVOCloud::IsAbandonedUpload;
using TAVOCloud::UploadPathBeside;
using testing::ElementsAre;

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

TEST(Leftovers, OnlyUploadsOfEndedProcessesOfThisMachineAreAbandoned) {
  const std::string gone = NameOf(AbandonedUploadBeside("/a/b"));
  EXPECT_TRUE(IsAbandonedUpload(gone)) << gone;
  EXPECT_FALSE(IsAbandonedUpload(NameOf(UploadPathBeside("/a/b")))) << "ours, and alive";
  EXPECT_FALSE(IsAbandonedUpload(NameOf(AsidePathBeside("/a/b"))));
  std::string foreign = gone;
  char& digit = foreign[std::string(".fennox-upload-").size()];
  digit = digit == '0' ? '1' : '0';
  EXPECT_FALSE(IsAbandonedUpload(foreign)) << "of another machine";
  for (const std::string& name : {gone + "0", "x" + gone, gone.substr(0, gone.size() - 1),
                                  std::string(".fennox-upload-"), std::string()}) {
    EXPECT_FALSE(IsAbandonedUpload(name)) << name;
  }
  EXPECT_EQ(UploadPathBeside("/a/b").rfind("/a/.fennox-upload-", 0), 0U);
  EXPECT_NE(UploadPathBeside("/a/b"), UploadPathBeside("/a/b"));
}

TEST(Leftovers, AListingIsReadHoweverItIsCut) {
  const std::string gone = NameOf(AbandonedUploadBeside("/"));
  const std::string text =
      "file\r\n/a/" + gone + "\r\n" + gone + "\n" + std::string(9999, 'x') + "\nx" + gone + "\n";
  for (const std::size_t step : {std::size_t{1}, std::size_t{7}, text.size()}) {
    TAVOCloud::LeftoverPicker picker;
    for (std::size_t at = 0; at < text.size(); at += step) picker.Take(text.substr(at, step));
    EXPECT_THAT(picker.names(), ElementsAre(gone, gone)) << step;
  }
}

}  // namespace
