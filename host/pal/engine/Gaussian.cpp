#include "Gaussian.h"

#include <cmath>
#include <limits>

namespace pal_engine {

Statistics::Statistics(int dimension)
    : sum(static_cast<size_t>(dimension), 0.0),
      squares(static_cast<size_t>(dimension * (dimension + 1) / 2), 0.0) {}

void Statistics::add(const float* values) {
    count += 1;
    size_t k = 0;
    for (size_t i = 0; i < sum.size(); ++i) {
        sum[i] += values[i];
        for (size_t j = 0; j <= i; ++j) {
            squares[k++] += static_cast<double>(values[i]) * values[j];
        }
    }
}

void Statistics::merge(const Statistics& other) {
    count += other.count;
    for (size_t i = 0; i < sum.size(); ++i) sum[i] += other.sum[i];
    for (size_t k = 0; k < squares.size(); ++k) squares[k] += other.squares[k];
}

void Statistics::remove(const Statistics& part) {
    count -= part.count;
    for (size_t i = 0; i < sum.size(); ++i) sum[i] -= part.sum[i];
    for (size_t k = 0; k < squares.size(); ++k) squares[k] -= part.squares[k];
}

double Statistics::logDeterminant() const {
    std::vector<double> lower;
    return factor(&lower);
}

double Statistics::factor(std::vector<double>* lower) const {
    const size_t n = sum.size();
    if (count < 1) {
        return 0;
    }
    // Covariance, then its Cholesky factor in place; the floor keeps short pieces finite.
    std::vector<double>& matrix = *lower;
    matrix.assign(n * n, 0.0);
    size_t k = 0;
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = 0; j <= i; ++j) {
            double value = squares[k++] / count - (sum[i] / count) * (sum[j] / count);
            matrix[i * n + j] = value;
        }
        matrix[i * n + i] += 1e-3;
    }
    double logDeterminant = 0;
    for (size_t j = 0; j < n; ++j) {
        double diagonal = matrix[j * n + j];
        for (size_t p = 0; p < j; ++p) diagonal -= matrix[j * n + p] * matrix[j * n + p];
        if (!(diagonal > 0)) {
            diagonal = std::numeric_limits<double>::min();
        }
        const double root = std::sqrt(diagonal);
        matrix[j * n + j] = root;
        logDeterminant += 2 * std::log(root);
        for (size_t i = j + 1; i < n; ++i) {
            double value = matrix[i * n + j];
            for (size_t p = 0; p < j; ++p) value -= matrix[i * n + p] * matrix[j * n + p];
            matrix[i * n + j] = value / root;
        }
    }
    return logDeterminant;
}

Gaussian::Gaussian(const Statistics& statistics) {
    for (double total : statistics.sum) mean.push_back(total / statistics.count);
    logDeterminant = statistics.factor(&lower);
}

double Gaussian::score(const float* frame, std::vector<double>* scratch) const {
    const size_t n = mean.size();
    std::vector<double>& solved = *scratch;
    solved.resize(n);
    double distance = 0;
    for (size_t i = 0; i < n; ++i) {
        double value = frame[i] - mean[i];
        for (size_t p = 0; p < i; ++p) value -= lower[i * n + p] * solved[p];
        solved[i] = value / lower[i * n + i];
        distance += solved[i] * solved[i];
    }
    return -0.5 * (logDeterminant + distance);
}

}  // namespace pal_engine
