// Full-covariance Gaussians over cepstra, as the diarizer models speakers and pieces of speech:
// their sufficient statistics, and a Gaussian made from them that scores single frames.
#ifndef PAL_ENGINE_GAUSSIAN_H
#define PAL_ENGINE_GAUSSIAN_H

#include <vector>

namespace pal_engine {

// A piece of speech summarised by the sufficient statistics of a Gaussian over its frames.
struct Statistics {
    double count = 0;
    std::vector<double> sum;      // of each coefficient
    std::vector<double> squares;  // of each product of two coefficients, lower triangle

    explicit Statistics(int dimension = 0);
    void add(const float* values);
    void merge(const Statistics& other);
    // Takes out the frames of `part`, which were added to these.
    void remove(const Statistics& part);
    // The log-determinant of the maximum-likelihood covariance, slightly regularised.
    double logDeterminant() const;
    // The same, and that covariance's lower Cholesky factor, row by row, in `lower`.
    double factor(std::vector<double>* lower) const;
};

// A full-covariance Gaussian made from statistics.
struct Gaussian {
    explicit Gaussian(const Statistics& statistics);

    // The log-likelihood of `frame`, less a constant that every Gaussian shares; `scratch` is
    // the caller's, reused between calls.
    double score(const float* frame, std::vector<double>* scratch) const;

    std::vector<double> mean;
    std::vector<double> lower;  // Cholesky factor of the covariance
    double logDeterminant = 0;
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_GAUSSIAN_H
