#pragma once
#include <QString>

#include <cstdint>
#include <string>
#include <vector>

// Small parsers of the text headers (NRRD, MetaImage, VTK): words, numbers and "(x,y,z)" vectors,
// each returning false on anything that is not exactly what it should be.
namespace VxHeaderText {

std::string trim(const std::string& s);
std::string lower(std::string s);
std::vector<std::string> words(const std::string& s);
bool toInt(const std::string& s, int64_t& v);
// Accepts "nan" (any case) as NaN where the header format allows it.
bool toDouble(const std::string& s, double& v);
bool toInts(const std::string& s, std::vector<int64_t>& v);
bool toDoubles(const std::string& s, std::vector<double>& v);
// "(1,0.5,0)" with optional blanks inside; n numbers.
bool toVector(const std::string& s, int n, double* v);
// For messages: the text shortened to 60 characters, non-printable bytes shown as '?'.
QString quote(const std::string& s);

} // namespace VxHeaderText
