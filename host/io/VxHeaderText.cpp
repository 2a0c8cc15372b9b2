#include <io/VxHeaderText.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace VxHeaderText {

std::string trim(const std::string& s)
{
    std::size_t b = 0, e = s.size();
    while (b < e && std::isspace((unsigned char)s[b])) ++b;
    while (e > b && std::isspace((unsigned char)s[e - 1])) --e;
    return s.substr(b, e - b);
}

std::string lower(std::string s)
{
    for (char& c : s) c = char(std::tolower((unsigned char)c));
    return s;
}

std::vector<std::string> words(const std::string& s)
{
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

bool toInt(const std::string& s, int64_t& v)
{
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long long x = std::strtoll(s.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE) return false;
    v = x;
    return true;
}

bool toDouble(const std::string& s, double& v)
{
    if (s.empty()) return false;
    if (lower(s) == "nan") {
        v = NAN;
        return true;
    }
    char* end = nullptr;
    const double x = std::strtod(s.c_str(), &end);
    if (*end != '\0') return false;
    v = x;
    return true;
}

bool toInts(const std::string& s, std::vector<int64_t>& v)
{
    v.clear();
    for (const std::string& w : words(s)) {
        int64_t x;
        if (!toInt(w, x)) return false;
        v.push_back(x);
    }
    return true;
}

bool toDoubles(const std::string& s, std::vector<double>& v)
{
    v.clear();
    for (const std::string& w : words(s)) {
        double x;
        if (!toDouble(w, x)) return false;
        v.push_back(x);
    }
    return true;
}

bool toVector(const std::string& text, int n, double* v)
{
    const std::string s = trim(text);
    if (s.size() < 2 || s.front() != '(' || s.back() != ')') return false;
    std::string inner = s.substr(1, s.size() - 2);
    int count = 0;
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = inner.find(',', start);
        const std::string part =
            trim(inner.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (count == n || !toDouble(part, v[count])) return false;
        ++count;
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return count == n;
}

QString quote(const std::string& s)
{
    std::string t = s.size() > 60 ? s.substr(0, 57) + "..." : s;
    for (char& c : t)
        if (!std::isprint((unsigned char)c)) c = '?';
    return QString::fromStdString(t);
}

} // namespace VxHeaderText
