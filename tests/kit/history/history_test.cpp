// Graphs of versions, their drawings, short ids, and the names that people give to versions.

#include <kit/history/graph_layout.h>
#include <kit/history/revision.h>
#include <kit/history/short_ids.h>
#include <kit/history/version_graph.h>
#include <kit/text.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <algorithm>
#include <sstream>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::GraphCharacters;
using Kit::GraphLayout;
using Kit::VersionGraph;
using testing::ElementsAre;
using testing::IsEmpty;

Id IdNamed(const std::string& name) { return Id(Kit::ToWide(name)); }

/// Returns a version that is named by its id.
Kit::Version Named(const std::string& id, const std::string& parent, int time) {
  Kit::Version version;
  version.id = IdNamed(id);
  if (!parent.empty()) version.parent = IdNamed(parent);
  version.summary = id;
  version.time = std::chrono::sys_seconds(std::chrono::seconds(time));
  return version;
}

/// Returns the ids of a graph's versions in the order of the rows.
std::string OrderOf(const VersionGraph& graph) {
  std::string order;
  for (const Kit::GraphVersion& version : graph.versions) order += version.version.summary;
  return order;
}

///     a - b - d   master        times: the letters' places
///      +- c       topic
VersionGraph Fork() {
  return Kit::BuildVersionGraph(
      {Named("c", "a", 3), Named("a", "", 1), Named("d", "b", 4), Named("b", "a", 2)});
}

/// Returns a drawing: each row with its version's id, and the lines between them.
std::string Draw(const VersionGraph& graph, const std::vector<Kit::Head>& branches,
                 GraphCharacters characters = GraphCharacters::Ascii) {
  const GraphLayout layout = Kit::LayOutGraph(graph, branches);
  const Kit::TextGraph drawn = Kit::DrawTextGraph(graph, layout, characters);
  std::ostringstream out;
  for (std::size_t row = 0; row < graph.versions.size(); ++row) {
    if (!drawn.above[row].empty()) out << drawn.above[row] << '\n';
    out << drawn.rows[row] << graph.versions[row].version.summary << '\n';
  }
  return out.str();
}

TEST(VersionGraph, LinksVersionsWithTheLatestFirst) {
  const VersionGraph graph = Fork();
  EXPECT_EQ(OrderOf(graph), "dcba");
  EXPECT_EQ(graph.versions[0].parent, 2);
  EXPECT_EQ(graph.versions[1].parent, 3);
  EXPECT_EQ(graph.versions[3].parent, -1);
  EXPECT_THAT(graph.versions[3].children, testing::UnorderedElementsAre(1, 2));
  EXPECT_TRUE(graph.versions[3].IsFork());
  EXPECT_FALSE(graph.versions[2].IsFork());
}

TEST(VersionGraph, PutsVersionsAfterTheirChildrenAtAllTimes) {
  EXPECT_EQ(OrderOf(Kit::BuildVersionGraph(
                {Named("a", "", 9), Named("b", "a", 5), Named("c", "b", 1), Named("x", "", 7)})),
            "xcba");
}

TEST(VersionGraph, PutsTheLongerHistoryFirstAtEqualTimes) {
  EXPECT_EQ(OrderOf(Kit::BuildVersionGraph(
                {Named("b", "a", 1), Named("x", "", 1), Named("a", "", 1), Named("c", "b", 1)})),
            "cbax");
}

TEST(VersionGraph, VersionWithoutItsParentBeginsAHistory) {
  const VersionGraph graph = Kit::BuildVersionGraph({Named("b", "a", 2), Named("c", "b", 3)});
  EXPECT_EQ(OrderOf(graph), "cb");
  EXPECT_EQ(graph.versions[1].parent, -1);
  EXPECT_THAT(Kit::BuildVersionGraph({}).versions, IsEmpty());
}

TEST(KeepFirstRows, CutsTheLinksToRowsThatGo) {
  VersionGraph graph = Fork();
  Kit::KeepFirstRows(graph, 3);
  EXPECT_EQ(OrderOf(graph), "dcb");
  EXPECT_EQ(graph.versions[0].parent, 2);
  EXPECT_EQ(graph.versions[1].parent, -1);
  EXPECT_EQ(graph.versions[2].parent, -1);
  Kit::KeepFirstRows(graph, 4);
  EXPECT_EQ(OrderOf(graph), "dcb");
  Kit::KeepFirstRows(graph, 0);
  EXPECT_THAT(graph.versions, IsEmpty());
}

TEST(GraphLayout, GivesTheFirstBranchTheFirstLane) {
  const VersionGraph graph = Fork();
  const Kit::Head master{"master", IdNamed("d")};
  const Kit::Head topic{"topic", IdNamed("c")};
  const GraphLayout layout = Kit::LayOutGraph(graph, std::vector{master, topic});
  EXPECT_EQ(layout.laneCount, 2);
  ASSERT_EQ(layout.lines.size(), 2u);
  EXPECT_EQ(layout.lines[0].lastRow, 3);
  EXPECT_EQ(layout.lines[0].joinRow, -1);
  EXPECT_EQ(layout.lines[1].firstRow, 1);
  EXPECT_EQ(layout.lines[1].lastRow, 1);
  EXPECT_EQ(layout.lines[1].joinRow, 3);
  EXPECT_EQ(layout.lines[1].colour, 1);
  EXPECT_EQ(layout.LaneOfRow(0), 0);
  EXPECT_EQ(layout.LaneOfRow(1), 1);
  EXPECT_EQ(Kit::LayOutGraph(graph, std::vector{topic, master}).LaneOfRow(1), 0);
}

TEST(GraphLayout, LinesThatDontOverlapShareALane) {
  // Two short lines join the first one, one after the other.
  const VersionGraph graph = Kit::BuildVersionGraph(
      {Named("a", "", 1), Named("b", "a", 2), Named("x", "a", 3), Named("c", "b", 4),
       Named("d", "c", 5), Named("y", "c", 6), Named("e", "d", 7)});
  EXPECT_EQ(Draw(graph, {{"master", IdNamed("e")}}),
            "*   e\n"
            "| * y\n"
            "* | d\n"
            "|-'\n"
            "*   c\n"
            "| * x\n"
            "* | b\n"
            "|-'\n"
            "*   a\n");
}

TEST(GraphLayout, SkipsBranchesThatTheGraphLacks) {
  const GraphLayout layout = Kit::LayOutGraph(Fork(), std::vector<Kit::Head>{{"new", Id()}});
  EXPECT_EQ(layout.lines.size(), 2u);
  EXPECT_EQ(Kit::LayOutGraph({}, {}).laneCount, 0);
}

TEST(TextGraph, DrawsJoinsOfSeveralLanesAboveTheirVersion) {
  VersionGraph graph = Kit::BuildVersionGraph(
      {Named("a", "", 1), Named("b", "a", 2), Named("c", "a", 3), Named("d", "a", 4)});
  graph.versions[0].version.branches = {"master"};
  const std::vector<Kit::Head> branches = {
      {"master", IdNamed("d")}, {"one", IdNamed("c")}, {"two", IdNamed("b")}};
  EXPECT_EQ(Draw(graph, branches),
            "*     d\n"
            "| *   c\n"
            "| | * b\n"
            "|---'\n"
            "*     a\n");
  EXPECT_EQ(Draw(graph, branches, GraphCharacters::Lines),
            "●     d\n"
            "│ ○   c\n"
            "│ │ ○ b\n"
            "├─┴─╯\n"
            "○     a\n");
}

TEST(ShortIds, AreAsLongAsTheyDiffer) {
  Kit::ShortIds ids;
  for (const char* id : {"aaaaaaaaaaaa", "aaaaaaaabbbb", "bbbbbbbbbbbb"}) ids.Add(IdNamed(id));
  EXPECT_EQ(ids.Of(IdNamed("aaaaaaaaaaaa")), "aaaaaaaaa");
  EXPECT_EQ(ids.Of(IdNamed("aaaaaaaabbbb")), "aaaaaaaab");
  EXPECT_EQ(ids.Of(IdNamed("bbbbbbbbbbbb")), "bbbbbbb");
  EXPECT_EQ(ids.Of(IdNamed("aaaaaaaabbbc")), "aaaaaaaabbbc");
}

class Revisions : public WorkspaceTest {
 protected:
  Revisions() {
    for (int i = 1; i <= 4; ++i) {
      versions.push_back(CommitFiles({{"a", std::to_string(i)}}, std::to_string(i)));
    }
    workspace.CreateBranch("old", versions[1].id).value();
    workspace.CreateTag("v1~2", versions[0].id).value();
  }

  std::string Found(const std::string& revision) const {
    return Kit::FindRevision(workspace, revision).value().summary;
  }
  static std::string TextOf(const Version& version) { return Kit::ToUtf8(version.id.View()); }

  std::vector<Version> versions;
};

TEST_F(Revisions, AreNamesIdsAndBeginningsOfIds) {
  EXPECT_EQ(Found("HEAD"), "4");
  EXPECT_EQ(Found("master"), "4");
  EXPECT_EQ(Found("old"), "2");
  EXPECT_EQ(Found(TextOf(versions[2])), "3");
  EXPECT_EQ(Found(TextOf(versions[0]).substr(0, 12)), "1");
}

TEST_F(Revisions, GoBackByTheStepsAfterATilde) {
  EXPECT_EQ(Found("HEAD~"), "3");
  EXPECT_EQ(Found("HEAD~0"), "4");
  EXPECT_EQ(Found("master~3"), "1");
  EXPECT_EQ(Found(TextOf(versions[3]).substr(0, 12) + "~2"), "2");
  EXPECT_THAT(Kit::FindRevision(workspace, "master~4"), FailsWith(ErrorCode::NotFound));
}

TEST_F(Revisions, ANameThatExistsComesFirst) {
  EXPECT_EQ(Found("v1~2"), "1");
  const std::string prefix = TextOf(versions[3]).substr(0, 8);
  workspace.CreateBranch(prefix, versions[0].id).value();
  EXPECT_EQ(Found(prefix), "1");
}

TEST_F(Revisions, FailForWhatNamesNothing) {
  const std::string id = TextOf(versions[3]);
  for (const std::string& revision :
       {std::string("none"), std::string(), std::string("none~1"), std::string("HEAD~x"),
        std::string("HEAD~-1"), id.substr(0, 3), std::string("0000")}) {
    EXPECT_THAT(Kit::FindRevision(workspace, revision), FailsWith(ErrorCode::NotFound)) << revision;
  }
  EXPECT_THAT(Kit::FindRevision(workspace, "\xFF"), FailsWith(ErrorCode::BadText));
  const Kit::Workspace empty =
      Kit::Workspace::Open(std::make_shared<Kit::MemoryObjectStore>()).value();
  EXPECT_THAT(Kit::FindRevision(empty, "HEAD"), FailsWith(ErrorCode::NotFound));
}

TEST_F(Revisions, FailForTheBeginningOfSeveralIds) {
  // Of some 300 ids, two begin with the same four digits.
  std::string prefix;
  std::map<std::string, std::string> by_prefix;
  for (const Version& version : versions) by_prefix.emplace(TextOf(version).substr(0, 4), "");
  for (int i = 5; prefix.empty(); ++i) {
    const Version version = CommitFiles({{"a", std::to_string(i)}}, std::to_string(i));
    const std::string four = TextOf(version).substr(0, 4);
    if (!by_prefix.emplace(four, "").second) prefix = four;
  }
  EXPECT_THAT(Kit::FindRevision(workspace, prefix), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(Kit::FindRevision(workspace, prefix + "~1"), FailsWith(ErrorCode::BadName));
  const std::vector<Version> found = Kit::FindByPrefix(workspace, prefix).value();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_GT(found[0].time, found[1].time);
}

TEST_F(Revisions, ShortIdsCountTheHeadsOfTheWorkspace) {
  const std::string head = TextOf(versions[3]);
  const char other = head[7] == '0' ? '1' : '0';
  const std::string like = head.substr(0, 7) + other + head.substr(8);
  EXPECT_EQ(Kit::ShortIds().Of(IdNamed(like)), head.substr(0, 7));
  EXPECT_EQ(Kit::ShortIds(workspace).Of(IdNamed(like)), head.substr(0, 7) + other);
  const std::string tagged = TextOf(versions[0]);
  const std::string near = tagged.substr(0, 9) + "!";
  EXPECT_EQ(Kit::ShortIds(workspace).Of(IdNamed(near)), near);
}

TEST(SplitSteps, TakesTheNumberAfterTheLastTilde) {
  using Kit::RevisionSteps;
  EXPECT_EQ(Kit::SplitSteps("a~3"), (RevisionSteps{"a", 3}));
  EXPECT_EQ(Kit::SplitSteps("a~"), (RevisionSteps{"a", 1}));
  EXPECT_EQ(Kit::SplitSteps("a~1~2"), (RevisionSteps{"a~1", 2}));
  EXPECT_EQ(Kit::SplitSteps("~4294967295"), (RevisionSteps{"", 4294967295U}));
  EXPECT_EQ(Kit::SplitSteps("a~4294967296"), (RevisionSteps{"a", 4294967295U}));
  EXPECT_EQ(Kit::SplitSteps("a~99999999999999999999"), (RevisionSteps{"a", 4294967295U}));
  for (const char* text : {"a", "", "a~x", "a~1x", "a~-1", "a~99999999999999999999x"}) {
    EXPECT_EQ(Kit::SplitSteps(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace TalVcs::Testing
