// SPDX-License-Identifier: MIT
#include "tests/support/leastsquaresproblems.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <numbers>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>

namespace support {

namespace {

using std::cos;
using std::exp;
using std::pow;
using std::sin;

Eigen::VectorXd vectorOf(std::initializer_list<double> values)
{
    Eigen::VectorXd result(static_cast<Eigen::Index>(values.size()));
    std::copy(values.begin(), values.end(), result.begin());
    return result;
}

/// Both forms of a function residual(params, i).
template <typename Residual>
void setError(LeastSquaresProblem& problem, const Residual& residual)
{
    const int m = problem.numMeasurements;
    problem.error = [residual, m](const Eigen::VectorXd& x) {
        Eigen::VectorXd r(m);
        for (int i = 0; i < m; ++i) r(i) = residual(x, i);
        return r;
    };
    problem.complexError = [residual, m](const Eigen::VectorXcd& x) {
        Eigen::VectorXcd r(m);
        for (int i = 0; i < m; ++i) r(i) = residual(x, i);
        return r;
    };
}

template <typename Residual>
LeastSquaresProblem published(std::string name, int m, std::initializer_list<double> start, double sumOfSquares,
                              const Residual& residual)
{
    LeastSquaresProblem problem;
    problem.name = std::move(name);
    problem.numMeasurements = m;
    problem.starts = {vectorOf(start), 10.0 * vectorOf(start)};
    problem.sumOfSquares = sumOfSquares;
    setError(problem, residual);
    return problem;
}

template <typename X>
using Scalar = typename X::Scalar;

std::vector<LeastSquaresProblem> smallProblems()
{
    return {
        published("Rosenbrock", 2, {-1.2, 1}, 0,
                  [](const auto& x, int i) { return i == 0 ? 10.0 * (x(1) - x(0) * x(0)) : 1.0 - x(0); }),
        published("Freudenstein and Roth", 2, {0.5, -2}, 0,
                  [](const auto& x, int i) {
                      return i == 0 ? -13.0 + x(0) + ((5.0 - x(1)) * x(1) - 2.0) * x(1)
                                    : -29.0 + x(0) + ((x(1) + 1.0) * x(1) - 14.0) * x(1);
                  }),
        published(
            "Powell badly scaled", 2, {0, 1}, 0,
            [](const auto& x, int i) { return i == 0 ? 1e4 * x(0) * x(1) - 1.0 : exp(-x(0)) + exp(-x(1)) - 1.0001; }),
        published("Brown badly scaled", 3, {1, 1}, 0,
                  [](const auto& x, int i) { return i == 0   ? x(0) - 1e6
                                                    : i == 1 ? x(1) - 2e-6
                                                             : x(0) * x(1) - 2.0; }),
        published("Beale", 3, {1, 1}, 0,
                  [](const auto& x, int i) {
                      constexpr double y[] = {1.5, 2.25, 2.625};
                      auto power = x(1);
                      for (int k = 0; k < i; ++k) power *= x(1);
                      // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): there are three equations
                      return y[i] - x(0) * (1.0 - power);
                  }),
        published("Jennrich and Sampson", 10, {0.3, 0.4}, 124.362182,
                  [](const auto& x, int i) { return 4.0 + 2.0 * i - (exp((i + 1.0) * x(0)) + exp((i + 1.0) * x(1))); }),
        published("Helical valley", 3, {-1, 0, 0}, 0,
                  [](const auto& x, int i) {
                      using T = Scalar<std::decay_t<decltype(x)>>;
                      const T turn =
                          std::atan(x(1) / x(0)) / (2.0 * std::numbers::pi) + (std::real(x(0)) < 0.0 ? 0.5 : 0.0);
                      return i == 0   ? T(10.0 * (x(2) - 10.0 * turn))
                             : i == 1 ? T(10.0 * (std::sqrt(x(0) * x(0) + x(1) * x(1)) - 1.0))
                                      : x(2);
                  }),
        published("Powell singular", 4, {3, -1, 0, 1}, 0,
                  [](const auto& x, int i) {
                      using T = Scalar<std::decay_t<decltype(x)>>;
                      return i == 0   ? T(x(0) + 10.0 * x(1))
                             : i == 1 ? T(std::sqrt(5.0) * (x(2) - x(3)))
                             : i == 2 ? T((x(1) - 2.0 * x(2)) * (x(1) - 2.0 * x(2)))
                                      : T(std::sqrt(10.0) * (x(0) - x(3)) * (x(0) - x(3)));
                  }),
        published("Wood", 6, {-3, -1, -3, -1}, 0, [](const auto& x, int i) {
            using T = Scalar<std::decay_t<decltype(x)>>;
            const T r[] = {10.0 * (x(1) - x(0) * x(0)),
                           1.0 - x(0),
                           std::sqrt(90.0) * (x(3) - x(2) * x(2)),
                           1.0 - x(2),
                           std::sqrt(10.0) * (x(1) + x(3) - 2.0),
                           (x(1) - x(3)) / std::sqrt(10.0)};
            return r[i];
        })};
}

std::vector<LeastSquaresProblem> curveProblems()
{
    return {published("Bard", 15, {1, 1, 1}, 8.21487730e-3,
                      [](const auto& x, int i) {
                          constexpr double y[] = {.14, .18, .22, .25, .29,  .32,  .35, .39,
                                                  .37, .58, .73, .96, 1.34, 2.10, 4.39};
                          const double u = i + 1.0;
                          const double v = 15.0 - i;
                          return y[i] - (x(0) + u / (v * x(1) + std::min(u, v) * x(2)));
                      }),
            published("Gaussian", 15, {0.4, 1, 0}, 1.12793277e-8,
                      [](const auto& x, int i) {
                          constexpr double y[] = {.0009, .0044, .0175, .0540, .1295, .2420, .3521, .3989};
                          const auto d = (7.0 - i) / 2.0 - x(2);
                          return x(0) * exp(-x(1) * d * d / 2.0) - y[std::min(i, 14 - i)];
                      }),
            published("Meyer", 16, {0.02, 4000, 250}, 87.9458552,
                      [](const auto& x, int i) {
                          constexpr double y[] = {34780, 28610, 23650, 19630, 16370, 13720, 11540, 9744,
                                                  8261,  7030,  6005,  5147,  4427,  3820,  3307,  2872};
                          return x(0) * exp(x(1) / (50.0 + 5.0 * i + x(2))) - y[i];
                      }),
            published("Box three-dimensional", 10, {0, 10, 20}, 0,
                      [](const auto& x, int i) {
                          const double t = 0.1 * (i + 1);
                          return exp(-t * x(0)) - exp(-t * x(1)) - x(2) * (std::exp(-t) - std::exp(-10.0 * t));
                      }),
            published("Kowalik and Osborne", 11, {.25, .39, .415, .39}, 3.07505604e-4,
                      [](const auto& x, int i) {
                          constexpr double y[] = {.1957, .1947, .1735, .1600, .0844, .0627,
                                                  .0456, .0342, .0323, .0235, .0246};
                          constexpr double u[] = {4, 2, 1, .5, .25, .167, .125, .1, .0833, .0714, .0625};
                          return y[i] - x(0) * (u[i] * u[i] + u[i] * x(1)) / (u[i] * u[i] + u[i] * x(2) + x(3));
                      }),
            published("Brown and Dennis", 20, {25, 5, -5, -1}, 85822.2016,
                      [](const auto& x, int i) {
                          const double t = (i + 1) / 5.0;
                          const auto a = x(0) + t * x(1) - std::exp(t);
                          const auto b = x(2) + x(3) * std::sin(t) - std::cos(t);
                          return a * a + b * b;
                      }),
            published("Osborne 1", 33, {.5, 1.5, -1, .01, .02}, 5.46489470e-5,
                      [](const auto& x, int i) {
                          constexpr double y[] = {.844, .908, .932, .936, .925, .908, .881, .850, .818, .784, .751,
                                                  .718, .685, .658, .628, .603, .580, .558, .538, .522, .506, .490,
                                                  .478, .467, .457, .448, .438, .431, .424, .420, .414, .411, .406};
                          return y[i] - (x(0) + x(1) * exp(-10.0 * i * x(3)) + x(2) * exp(-10.0 * i * x(4)));
                      }),
            published("Biggs EXP6", 13, {1, 2, 1, 1, 1, 1}, 0,
                      [](const auto& x, int i) {
                          const double t = 0.1 * (i + 1);
                          const double y = std::exp(-t) - 5.0 * std::exp(-10.0 * t) + 3.0 * std::exp(-4.0 * t);
                          return x(2) * exp(-t * x(0)) - x(3) * exp(-t * x(1)) + x(5) * exp(-t * x(4)) - y;
                      }),
            published("Osborne 2", 65, {1.3, .65, .65, .7, .6, 3, 5, 7, 2, 4.5, 5.5}, 4.01377363e-2,
                      [](const auto& x, int i) {
                          constexpr double y[] = {1.366, 1.191, 1.112, 1.013, .991, .885, .831, .847, .786, .725, .746,
                                                  .679,  .608,  .655,  .616,  .606, .602, .626, .651, .724, .649, .649,
                                                  .694,  .644,  .624,  .661,  .612, .558, .533, .495, .500, .423, .395,
                                                  .375,  .372,  .391,  .396,  .405, .428, .429, .523, .562, .607, .653,
                                                  .672,  .708,  .633,  .668,  .645, .632, .591, .559, .597, .625, .739,
                                                  .710,  .729,  .720,  .636,  .581, .428, .292, .162, .098, .054};
                          const double t = i / 10.0;
                          const auto bell = [&](int height, int width, int center) {
                              const auto d = t - x(center);
                              return x(height) * exp(-d * d * x(width));
                          };
                          return y[i] - (x(0) * exp(-t * x(4)) + bell(1, 5, 8) + bell(2, 6, 9) + bell(3, 7, 10));
                      })};
}

using Table = std::vector<std::vector<double>>;

/// A model of NIST: the response of one row, y first, then the predictor.
template <auto Model>
void setModel(LeastSquaresProblem& problem, Table table)
{
    setError(problem, [table = std::move(table)](const auto& b, int i) {
        const auto& row = table[static_cast<std::size_t>(i)];
        return Model(b, row[1]) - row[0];
    });
}

constexpr auto saturation = [](const auto& b, double x) { return b(0) * (1.0 - exp(-b(1) * x)); };

constexpr auto decayByLine = [](const auto& b, double x) { return exp(-b(0) * x) / (b(1) + b(2) * x); };

constexpr auto threeDecays = [](const auto& b, double x) {
    return b(0) * exp(-b(1) * x) + b(2) * exp(-b(3) * x) + b(4) * exp(-b(5) * x);
};

constexpr auto twoBells = [](const auto& b, double x) {
    const auto u = (x - b(3)) / b(4);
    const auto v = (x - b(6)) / b(7);
    return b(0) * exp(-b(1) * x) + b(2) * exp(-u * u) + b(5) * exp(-v * v);
};

constexpr auto oneBell = [](const auto& b, double x) {
    const auto z = (x - b(2)) / b(1);
    return b(0) / b(1) * exp(-0.5 * z * z);
};

constexpr auto seasons = [](const auto& b, double x) {
    constexpr double turn = 2.0 * std::numbers::pi;
    return b(0) + b(1) * std::cos(turn * x / 12.0) + b(2) * std::sin(turn * x / 12.0) + b(4) * cos(turn * x / b(3)) +
           b(5) * sin(turn * x / b(3)) + b(7) * cos(turn * x / b(6)) + b(8) * sin(turn * x / b(6));
};

constexpr auto cubicByCubic = [](const auto& b, double x) {
    return (b(0) + x * (b(1) + x * (b(2) + x * b(3)))) / (1.0 + x * (b(4) + x * (b(5) + x * b(6))));
};

constexpr auto squareBySquare = [](const auto& b, double x) {
    return (b(0) + x * (b(1) + x * b(2))) / (1.0 + x * (b(3) + x * b(4)));
};

constexpr auto arcTangent = [](const auto& b, double x) {
    return b(0) - b(1) * x - std::atan(b(2) / (x - b(3))) / std::numbers::pi;
};

/// By the letters in which the names of the sets begin.
const std::pair<const char*, void (*)(LeastSquaresProblem&, Table)> models[] = {
    {"Misra1a", setModel<saturation>},
    {"BoxBOD", setModel<saturation>},
    {"Chwirut", setModel<decayByLine>},
    {"Lanczos", setModel<threeDecays>},
    {"Gauss", setModel<twoBells>},
    {"Eckerle4", setModel<oneBell>},
    {"ENSO", setModel<seasons>},
    {"Hahn1", setModel<cubicByCubic>},
    {"Thurber", setModel<cubicByCubic>},
    {"Kirby2", setModel<squareBySquare>},
    {"Roszman1", setModel<arcTangent>},
    {"MGH09", setModel<[](const auto& b, double x) { return b(0) * (x * x + x * b(1)) / (x * x + x * b(2) + b(3)); }>},
    {"MGH10", setModel<[](const auto& b, double x) { return b(0) * exp(b(1) / (x + b(2))); }>},
    {"MGH17", setModel<[](const auto& b, double x) { return b(0) + b(1) * exp(-x * b(3)) + b(2) * exp(-x * b(4)); }>},
    {"Rat42", setModel<[](const auto& b, double x) { return b(0) / (1.0 + exp(b(1) - b(2) * x)); }>},
    {"Rat43", setModel<[](const auto& b, double x) { return b(0) / pow(1.0 + exp(b(1) - b(2) * x), 1.0 / b(3)); }>},
    {"Misra1b", setModel<[](const auto& b, double x) { return b(0) * (1.0 - pow(1.0 + b(1) * x / 2.0, -2.0)); }>},
    {"Misra1c", setModel<[](const auto& b, double x) { return b(0) * (1.0 - pow(1.0 + 2.0 * b(1) * x, -0.5)); }>},
    {"Misra1d", setModel<[](const auto& b, double x) { return b(0) * b(1) * x / (1.0 + b(1) * x); }>},
    {"DanWood", setModel<[](const auto& b, double x) { return b(0) * pow(x, b(1)); }>},
    {"Bennett5", setModel<[](const auto& b, double x) { return b(0) * pow(b(1) + x, -1.0 / b(2)); }>},
};

/// The one set with two predictors, and the logarithm of its response.
void setNelson(LeastSquaresProblem& problem, Table table)
{
    setError(problem, [table = std::move(table)](const auto& b, int i) {
        const auto& row = table[static_cast<std::size_t>(i)];
        return b(0) - b(1) * row[1] * exp(-b(2) * row[2]) - std::log(row[0]);
    });
}

std::string contentsOf(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error("cannot read " + file.string());
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Table readTable(const std::string& text)
{
    Table table;
    std::istringstream stream(text.substr(text.find('\n', text.rfind("Data:"))));
    for (std::string line; std::getline(stream, line);) {
        std::istringstream values(line);
        std::vector<double> row{std::istream_iterator<double>(values), {}};
        if (!row.empty()) table.push_back(std::move(row));
    }
    return table;
}

void readParameters(const std::string& text, LeastSquaresProblem& problem)
{
    static const std::regex line(R"(\n\s*b\d+ *=\s+(\S+)\s+(\S+)\s+(\S+)\s+(\S+))");
    std::vector<double> columns[4];
    for (std::sregex_iterator match(text.begin(), text.end(), line); match != std::sregex_iterator(); ++match) {
        for (std::size_t i = 0; i < 4; ++i) columns[i].push_back(std::stod((*match)[i + 1].str()));
    }
    const auto vectorOfColumn = [&](std::size_t i) {
        return Eigen::VectorXd(
            Eigen::Map<const Eigen::VectorXd>(columns[i].data(), static_cast<Eigen::Index>(columns[i].size())));
    };
    problem.starts = {vectorOfColumn(0), vectorOfColumn(1)};
    problem.minimum = vectorOfColumn(2);
    problem.deviations = vectorOfColumn(3);
}

LeastSquaresProblem readNist(const std::filesystem::path& file)
{
    const std::string text = contentsOf(file);
    LeastSquaresProblem problem;
    problem.name = file.stem().string();
    readParameters(text, problem);
    const std::string title = "Residual Sum of Squares:";
    problem.sumOfSquares = std::stod(text.substr(text.find(title) + title.size()));
    // A slip of the file: its own sum of squares contradicts the 1.2 that it prints.
    if (problem.name == "Roszman1") problem.minimum(0) = 0.20196866396;
    Table table = readTable(text);
    problem.numMeasurements = static_cast<int>(table.size());
    if (problem.name == "Nelson") {
        setNelson(problem, std::move(table));
        return problem;
    }
    const auto* const model = std::find_if(std::begin(models), std::end(models),
                                           [&](const auto& m) { return problem.name.starts_with(m.first); });
    if (model == std::end(models)) throw std::runtime_error("no model for " + problem.name);
    model->second(problem, std::move(table));
    return problem;
}

} // namespace

std::vector<LeastSquaresProblem> MoreGarbowHillstromProblems()
{
    std::vector<LeastSquaresProblem> problems = smallProblems();
    for (LeastSquaresProblem& problem : curveProblems()) problems.push_back(std::move(problem));
    return problems;
}

std::vector<LeastSquaresProblem> NistProblems(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".dat") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<LeastSquaresProblem> problems;
    for (const auto& file : files) problems.push_back(readNist(file));
    return problems;
}

Eigen::MatrixXd ComplexStepJacobian(const LeastSquaresProblem& problem, const Eigen::VectorXd& params)
{
    constexpr double step = 1e-30;
    Eigen::MatrixXd jacobian(problem.numMeasurements, params.size());
    for (Eigen::Index j = 0; j < params.size(); ++j) {
        Eigen::VectorXcd x = params.cast<std::complex<double>>();
        x(j) += std::complex<double>(0.0, step);
        jacobian.col(j) = problem.complexError(x).imag() / step;
    }
    return jacobian;
}

} // namespace support
