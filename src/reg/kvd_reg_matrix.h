// kvd_reg_matrix.h - Matrices of the estimator: fixed sizes, row major, in std::array. Sums run
// from the first index to the last, starting at 0; results must be the same to the last bit on
// every host.
#pragma once
#include "reg/kvd_reg_estimate.h"

#include <array>
#include <cstddef>

namespace matrix {

template <std::size_t ROWS, std::size_t COLUMNS>
using Matrix = std::array<double, ROWS * COLUMNS>;

template <std::size_t N>
constexpr Matrix<N, N> identity()
{
    Matrix<N, N> r{};
    for (std::size_t i = 0; i < N; ++i) r[i * N + i] = 1.0;
    return r;
}

template <std::size_t ROWS, std::size_t COLUMNS>
constexpr Matrix<COLUMNS, ROWS> transpose(const Matrix<ROWS, COLUMNS>& a)
{
    Matrix<COLUMNS, ROWS> r{};
    for (std::size_t i = 0; i < ROWS; ++i)
        for (std::size_t j = 0; j < COLUMNS; ++j) r[j * ROWS + i] = a[i * COLUMNS + j];
    return r;
}

template <std::size_t SIZE>
constexpr std::array<double, SIZE> sum(const std::array<double, SIZE>& a, const std::array<double, SIZE>& b)
{
    std::array<double, SIZE> r{};
    for (std::size_t i = 0; i < SIZE; ++i) r[i] = a[i] + b[i];
    return r;
}

template <std::size_t SIZE>
constexpr std::array<double, SIZE> difference(const std::array<double, SIZE>& a,
                                              const std::array<double, SIZE>& b)
{
    std::array<double, SIZE> r{};
    for (std::size_t i = 0; i < SIZE; ++i) r[i] = a[i] - b[i];
    return r;
}

template <std::size_t SIZE>
constexpr std::array<double, SIZE> scale(const std::array<double, SIZE>& a, double factor)
{
    std::array<double, SIZE> r{};
    for (std::size_t i = 0; i < SIZE; ++i) r[i] = a[i] * factor;
    return r;
}

template <std::size_t N>
constexpr double dot(const std::array<double, N>& a, const std::array<double, N>& b)
{
    double r = 0.0;
    for (std::size_t i = 0; i < N; ++i) r += a[i] * b[i];
    return r;
}

/// a times b transposed.
template <std::size_t N, std::size_t M>
constexpr Matrix<N, M> outer(const std::array<double, N>& a, const std::array<double, M>& b)
{
    Matrix<N, M> r{};
    for (std::size_t i = 0; i < N; ++i)
        for (std::size_t j = 0; j < M; ++j) r[i * M + j] = a[i] * b[j];
    return r;
}

/// Adds v times v transposed times the factor, in place: it runs six times an estimate.
template <std::size_t N>
constexpr void addOuter(Matrix<N, N>& to, const std::array<double, N>& v, double factor)
{
    for (std::size_t i = 0; i < N; ++i)
        for (std::size_t j = 0; j < N; ++j) to[i * N + j] += v[i] * v[j] * factor;
}

/// (ROWS x INNER) times (INNER x COLUMNS). The inner index runs in the middle loop so that rows are
/// walked in memory order; each element still sums from the first index to the last.
template <std::size_t ROWS, std::size_t INNER, std::size_t COLUMNS>
constexpr Matrix<ROWS, COLUMNS> multiply(const Matrix<ROWS, INNER>& a, const Matrix<INNER, COLUMNS>& b)
{
    Matrix<ROWS, COLUMNS> r{};
    for (std::size_t i = 0; i < ROWS; ++i)
        for (std::size_t k = 0; k < INNER; ++k)
            for (std::size_t j = 0; j < COLUMNS; ++j)
                r[i * COLUMNS + j] += a[i * INNER + k] * b[k * COLUMNS + j];
    return r;
}

template <std::size_t ROWS, std::size_t COLUMNS>
constexpr std::array<double, ROWS> multiply(const Matrix<ROWS, COLUMNS>& a,
                                            const std::array<double, COLUMNS>& v)
{
    std::array<double, ROWS> r{};
    for (std::size_t i = 0; i < ROWS; ++i)
        for (std::size_t j = 0; j < COLUMNS; ++j) r[i] += a[i * COLUMNS + j] * v[j];
    return r;
}

}  // namespace matrix
