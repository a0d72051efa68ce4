#pragma once

// The comparison of our calls with those of other packages, on the same input, in one process.
//
// A row of the table is one job. Its contenders, ours and the peers, run in turns; their first results are held against ours before any
// time counts. A row reads
//
//   row<std::vector<double>> r(table, {.name = "closest node, cube", .item = "queries", .items = n, ...});
//   if (!r.chosen()) return;
//   r.ours([&] { return job(); }, [&](const auto& result) { return comparable_form(result); });
//   r.peer("package", [&] { return its_job(); }, [&](const auto& result) { return comparable_form(result); });
//   r.run();
//
// where only the first of both functions is timed.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench
{

/// Bytes of memory that the process has now; what was given up counts no more.
double memory_in_use();

/// What one call took.
struct cost
{
    double seconds = 0; ///< processor time, which other work on the machine disturbs least
    double bytes = 0;   ///< the highest memory in use beyond that before the call, its result included; 0 where it was not measured
};

/// Measures from its construction to `stop`.
class meter
{
public:
    explicit meter(bool with_memory);
    cost stop() const;

private:
    double start_;
    std::optional<double> memory_before_;
};

/// At most `ratio` times the time of `peer`; of the fastest, where no peer is named. Rows whose text leaves "the best" open name none.
struct requirement
{
    double ratio;
    std::string peer;
};

struct row_description
{
    std::string name;
    std::string item; ///< what the items are
    double items = 0;
    std::vector<requirement> required;
    std::string compared; ///< in what the results are equal
};

/// What became of one contender of a row.
struct contender_result
{
    std::string name;
    std::vector<double> seconds; ///< one per repetition
    double bytes = 0;
    bool equal = true;

    double median() const;
};

struct row_result
{
    row_description description;
    std::vector<std::pair<std::string, double>> counts; ///< what else the job consists of
    std::vector<contender_result> contenders;           ///< ours first
};

struct options
{
    bool with_limits = false; ///< say how fast each job could be at best
    double items = 1e6;
    unsigned repetitions = 3;
    std::string filter; ///< rows whose name has this in it
    bool with_peers = true;
    double row_budget = 15; ///< seconds after which a row is repeated no more
    std::string csv;        ///< a file to which every figure is appended
};

/// Collects the rows and prints them.
class table
{
public:
    explicit table(const options& chosen) : options_(chosen) {}

    const options& chosen() const { return options_; }
    /// The family of the rows that follow.
    void begin(const char* family) { family_ = family; }

    bool chooses(const row_description& description) const;
    void add(row_result result);

    /// The rows as a table in Markdown; false when results differ.
    bool print() const;

private:
    void print_limits() const;

    options options_;
    std::string family_;
    std::vector<row_result> rows_;
};

/// One job; `Form` is the comparable form of its results.
template <class Form>
class row
{
public:
    using equality = std::function<bool(const Form&, const Form&)>;

    /// @param equal  how two comparable forms are held against each other
    row(table& rows, row_description description, equality equal = std::equal_to<Form>())
        : table_(rows), description_(std::move(description)), equal_(std::move(equal))
    {
    }

    bool chosen() const { return table_.chooses(description_); }

    template <class Call, class View>
    void ours(Call call, View view)
    {
        add("ours", std::move(call), std::move(view));
    }

    template <class Call, class View>
    void peer(std::string name, Call call, View view)
    {
        if (table_.chosen().with_peers) add(std::move(name), std::move(call), std::move(view));
    }

    /// Tells how many of something the job consists of; the table gives the time for each. May be called where results are looked at.
    void count(std::string of, double number) { counts_.emplace_back(std::move(of), number); }

    void run()
    {
        row_result result{description_, {}, {}};
        std::optional<Form> reference;
        double spent = 0;
        for (const contender& each : contenders_)
        {
            std::optional<Form> form;
            const cost first = each.run(true, &form);
            result.contenders.push_back({each.name, {first.seconds}, first.bytes, !reference || equal_(*reference, *form)});
            if (!reference) reference = std::move(form);
            spent += first.seconds;
        }
        reference.reset();
        result.counts = counts_;

        // The first run, on fresh memory, does not count where there are others.
        for (unsigned repetition = 0; repetition < table_.chosen().repetitions && spent < table_.chosen().row_budget; ++repetition)
            for (std::size_t k = 0; k < contenders_.size(); ++k)
            {
                contender_result& each = result.contenders[k];
                if (repetition == 0) each.seconds.clear();
                each.seconds.push_back(contenders_[k].run(false, nullptr).seconds);
                spent += each.seconds.back();
            }
        table_.add(std::move(result));
    }

private:
    struct contender
    {
        std::string name;
        std::function<cost(bool with_memory, std::optional<Form>* form)> run;
    };

    template <class Call, class View>
    void add(std::string name, Call call, View view)
    {
        contenders_.push_back({std::move(name), [call, view](bool with_memory, std::optional<Form>* form) {
                                   const meter measuring(with_memory);
                                   const auto result = call();
                                   const cost taken = measuring.stop();
                                   if (form) *form = view(result);
                                   return taken;
                               }});
    }

    table& table_;
    row_description description_;
    equality equal_;
    std::vector<contender> contenders_;
    std::vector<std::pair<std::string, double>> counts_;
};

/// The families of rows.
void search_rows(table& rows);
void connectivity_rows(table& rows);
void surface_file_rows(table& rows);
void volume_file_rows(table& rows);
void quality_rows(table& rows);
void metrics_rows(table& rows);
void gradation_rows(table& rows);

/// Prints the steps of the typical job on so many triangles.
void typical_job(double triangles_wanted);

} // namespace bench
