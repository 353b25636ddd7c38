#include "examples/cloud_csv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

using examples::Clouds;
using examples::parse_clouds;
using examples::read_clouds;

const std::string kHeader = "plane,frame,x,y,z\n";

void expect_refused(const Clouds& clouds, std::int64_t line, const std::string& reason) {
  EXPECT_EQ(clouds.error_line, line);
  EXPECT_EQ(clouds.error, reason);
  EXPECT_TRUE(clouds.planes.empty());
}

// Refusals.

TEST(ParseClouds, RefusesAnEmptyFile) { expect_refused(parse_clouds(""), 0, "the file is empty"); }

TEST(ParseClouds, RefusesAFileWithoutItsHeader) {
  const std::string reason = "header 'plane,frame,x,y,z' expected";
  expect_refused(parse_clouds("0,0,1,2,3\n"), 1, reason);
  expect_refused(parse_clouds("\n" + kHeader + "0,0,1,2,3\n"), 1, reason);
  expect_refused(parse_clouds("plane,frame,x,y\n"), 1, reason);
  expect_refused(parse_clouds("plane, frame, x, y, z\n"), 1, reason);
}

TEST(ParseClouds, RefusesAHeaderWithoutPoints) {
  expect_refused(parse_clouds(kHeader), 0, "no points after the header");
  expect_refused(parse_clouds("plane,frame,x,y,z"), 0, "no points after the header");
}

TEST(ParseClouds, RefusesAnEmptyLine) {
  expect_refused(parse_clouds(kHeader + "0,0,1,2,3\n\n0,0,1,2,3\n"), 3, "empty line");
  expect_refused(parse_clouds(kHeader + "0,0,1,2,3\n\r\n"), 3, "empty line");
}

TEST(ParseClouds, RefusesAWrongNumberOfFields) {
  expect_refused(parse_clouds(kHeader + "0,0,1,2\n"), 2, "5 fields expected, 4 found");
  expect_refused(parse_clouds(kHeader + "0,0,1,2,3,\n"), 2, "5 fields expected, 6 found");
  expect_refused(parse_clouds(kHeader + "0,0,1,2,3,4,5,6\n"), 2, "5 fields expected, 8 found");
  expect_refused(parse_clouds(kHeader + "0 0 1 2 3\n"), 2, "5 fields expected, 1 found");
}

TEST(ParseClouds, RefusesNumbersOfPlanesAndFramesThatAreNotWhole) {
  expect_refused(parse_clouds(kHeader + "1.0,0,1,2,3\n"), 2, "plane '1.0' is not a whole number");
  expect_refused(parse_clouds(kHeader + "x,0,1,2,3\n"), 2, "plane 'x' is not a whole number");
  expect_refused(parse_clouds(kHeader + ",0,1,2,3\n"), 2, "plane '' is not a whole number");
  expect_refused(parse_clouds(kHeader + "0, 1,1,2,3\n"), 2, "frame ' 1' is not a whole number");
  expect_refused(parse_clouds(kHeader + "0,1e3,1,2,3\n"), 2, "frame '1e3' is not a whole number");
  expect_refused(parse_clouds(kHeader + "0,+1,1,2,3\n"), 2, "frame '+1' is not a whole number");
}

TEST(ParseClouds, RefusesWholeNumbersBeyond32Bits) {
  expect_refused(parse_clouds(kHeader + "2147483648,0,1,2,3\n"), 2,
                 "plane '2147483648' is out of range");
  expect_refused(parse_clouds(kHeader + "0,-2147483649,1,2,3\n"), 2,
                 "frame '-2147483649' is out of range");
}

TEST(ParseClouds, RefusesCoordinatesWithAnythingAroundThem) {
  expect_refused(parse_clouds(kHeader + "0,0,1mm,2,3\n"), 2, "x '1mm' is not a number");
  expect_refused(parse_clouds(kHeader + "0,0,1, 2,3\n"), 2, "y ' 2' is not a number");
  expect_refused(parse_clouds(kHeader + "0,0,1,2,3 \n"), 2, "z '3 ' is not a number");
  expect_refused(parse_clouds(kHeader + "0,0,,2,3\n"), 2, "x '' is not a number");
  expect_refused(parse_clouds(kHeader + "0,0,0x10,2,3\n"), 2, "x '0x10' is not a number");
  expect_refused(parse_clouds(kHeader + "0,0,1.5.2,2,3\n"), 2, "x '1.5.2' is not a number");
  expect_refused(parse_clouds(kHeader + "0,0,1,2,3\r\r\n"), 2, "z '3\r' is not a number");
}

TEST(ParseClouds, RefusesCoordinatesThatAreNotFinite) {
  expect_refused(parse_clouds(kHeader + "0,0,inf,2,3\n"), 2, "x 'inf' is not finite");
  expect_refused(parse_clouds(kHeader + "0,0,1,nan,3\n"), 2, "y 'nan' is not finite");
  expect_refused(parse_clouds(kHeader + "0,0,1,2,-inf\n"), 2, "z '-inf' is not finite");
  expect_refused(parse_clouds(kHeader + "0,0,1e999,2,3\n"), 2, "x '1e999' is out of range");
}

TEST(ParseClouds, NamesTheFirstBadLine) {
  const std::string good = "0,0,1,2,3\n";
  expect_refused(parse_clouds(kHeader + good + good + "0,0,a,2,3\n" + "0,0,b,2,3\n"), 4,
                 "x 'a' is not a number");
  expect_refused(parse_clouds(kHeader + good + "0,0,1,2,q"), 3, "z 'q' is not a number");
}

TEST(ParseClouds, RefusesThe101stPlaneWhereItAppears) {
  std::string text = kHeader;
  for (int p = 0; p < 100; ++p) text += std::to_string(7 * p) + ",0,1,2,3\n";
  EXPECT_EQ(parse_clouds(text).planes.size(), 100u);
  text += "0,0,1,2,3\n1,0,1,2,3\n";
  expect_refused(parse_clouds(text), 103, "more than 100 planes");
}

TEST(ReadClouds, RefusesWhatCannotBeOpened) {
  expect_refused(read_clouds(testing::TempDir() + "no such file"), 0, "the file cannot be opened");
  expect_refused(read_clouds(testing::TempDir()), 0, "the file cannot be opened");
}

// What it takes.

TEST(ParseClouds, SortsRowsIntoPlanesAndKeepsTheirOrderWithin) {
  const Clouds clouds = parse_clouds(kHeader +
                                     "5,3,1.5,-2.25,300\n"
                                     "-2,0,7,8,9\n"
                                     "5,-1,1e2,.5,-0\n");
  EXPECT_EQ(clouds.error, "");
  ASSERT_EQ(clouds.planes.size(), 2u);
  EXPECT_EQ(clouds.planes[0].plane, -2);
  ASSERT_EQ(clouds.planes[0].points.size(), 1u);
  EXPECT_EQ(clouds.planes[0].points[0].y, 8.0);
  EXPECT_EQ(clouds.planes[1].plane, 5);
  ASSERT_EQ(clouds.planes[1].points.size(), 2u);
  EXPECT_EQ(clouds.planes[1].points[0].x, 1.5);
  EXPECT_EQ(clouds.planes[1].points[0].y, -2.25);
  EXPECT_EQ(clouds.planes[1].points[0].z, 300.0);
  EXPECT_EQ(clouds.planes[1].points[0].id, 3);
  EXPECT_EQ(clouds.planes[1].points[1].x, 100.0);
  EXPECT_EQ(clouds.planes[1].points[1].id, -1);
}

TEST(ParseClouds, TakesLinesEndedInEitherWayAndALastOneWithoutAnEnd) {
  const Clouds clouds = parse_clouds("plane,frame,x,y,z\r\n0,0,1,2,3\r\n0,1,4,5,6\n0,2,7,8,9");
  EXPECT_EQ(clouds.error, "");
  ASSERT_EQ(clouds.planes.size(), 1u);
  ASSERT_EQ(clouds.planes[0].points.size(), 3u);
  EXPECT_EQ(clouds.planes[0].points[0].z, 3.0);
  EXPECT_EQ(clouds.planes[0].points[2].z, 9.0);
}

TEST(ParseClouds, TakesAnXThatIsNotANumberAsADroppedPoint) {
  const Clouds clouds = parse_clouds(kHeader + "0,0,nan,2,3\n");
  ASSERT_EQ(clouds.planes.size(), 1u);
  EXPECT_TRUE(std::isnan(clouds.planes[0].points[0].x));
}

TEST(ParseClouds, ReadsNumbersToTheLastDigit) {
  const Clouds clouds = parse_clouds(kHeader + "0,0,0.1,-29.6032181,5e-324\n");
  ASSERT_EQ(clouds.planes.size(), 1u);
  EXPECT_EQ(clouds.planes[0].points[0].x, 0.1);
  EXPECT_EQ(clouds.planes[0].points[0].y, -29.6032181);
  EXPECT_EQ(clouds.planes[0].points[0].z, 5e-324);
}

TEST(ReadClouds, ReadsAFile) {
  const std::string path = testing::TempDir() + "kestrane_read_clouds.csv";
  std::ofstream(path) << kHeader << "3,1,1,2,3\n";
  const Clouds clouds = read_clouds(path);
  std::remove(path.c_str());
  ASSERT_EQ(clouds.planes.size(), 1u);
  EXPECT_EQ(clouds.planes[0].plane, 3);
}

}  // namespace
