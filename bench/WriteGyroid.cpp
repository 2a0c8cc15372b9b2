// Writes a float32 gyroid, sin x cos y + sin y cos z + sin z cos x on [-4pi, 4pi]^3, as a raw volume
// of N^3 nodes (x fastest), one node layer at a time: volumes larger than memory for the MPI
// benchmark.   vxiso_gyroid_raw N FILE
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv)
{
    const long n = argc == 3 ? std::atol(argv[1]) : 0;
    if (n < 2) {
        std::fprintf(stderr, "usage: vxiso_gyroid_raw N FILE (N at least 2)\n");
        return 2;
    }
    std::FILE* out = std::fopen(argv[2], "wb");
    if (!out) {
        std::perror(argv[2]);
        return 1;
    }
    const double pi = std::acos(-1.0), step = 8 * pi / double(n - 1);
    std::vector<float> layer(std::size_t(n * n));
    for (long k = 0; k < n; ++k) {
        const double z = -4 * pi + double(k) * step;
        for (long j = 0; j < n; ++j)
            for (long i = 0; i < n; ++i) {
                const double x = -4 * pi + double(i) * step, y = -4 * pi + double(j) * step;
                layer[std::size_t(j * n + i)] =
                    float(std::sin(x) * std::cos(y) + std::sin(y) * std::cos(z) + std::sin(z) * std::cos(x));
            }
        if (std::fwrite(layer.data(), sizeof(float), layer.size(), out) != layer.size()) {
            std::perror(argv[2]);
            return 1;
        }
    }
    return std::fclose(out) == 0 ? 0 : 1;
}
