/** @file
 * From what a person wants to see to a configuration document.
 */
#include "vantor/wish.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "configuration/sensor_knowledge.h"
#include "vantor/plan.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Frames per second if nothing else is wanted. */
constexpr double default_frame_rate = 10.0;

/** Distance of the first point in metres if only the farthest distance is wanted. */
constexpr double default_nearest = 0.2;

/** How much higher than the greatest wanted velocity the ambiguous one is: at the ambiguous velocity itself,
 * a target seems to approach and to recede. */
constexpr double velocity_margin = 1.25;

/** The sweep rate for a greatest velocity. */
double sweep_rate_for(double velocity)
{
    return velocity * velocity_margin / velocity_bound(1.0);
}

/** The greatest velocity of a sweep rate. */
double velocity_with(double sweep_rate)
{
    return velocity_bound(sweep_rate) / velocity_margin;
}

/** Most that the sweep rate is raised above the wanted one, so that a frame has enough sweeps. */
constexpr double most_raise = 2.0;

/** Sweeps in a frame if only the greatest velocity is wanted. */
constexpr double default_sweeps = 32.0;

/** Points in the width of a pulse: enough to see its shape, and the least that does not miss a target. */
constexpr double good_points_per_pulse = 4.0;
constexpr double least_points_per_pulse = 2.0;

/** Tolerance of a quotient of distances that should be a whole number. */
constexpr double rounding_error = 1e-6;

/** A number as JSON; without a fraction if it has none. */
ordered_json to_number(double value)
{
    constexpr double largest_integer = 1e15;
    return value == std::floor(value) && value < largest_integer ? ordered_json(std::llround(value))
                                                                 : ordered_json(value);
}

/** A number with up to four digits. */
std::string short_text(double value)
{
    std::ostringstream text;
    text.precision(4);
    text << value;
    return text.str();
}

/** Chooses the members of a configuration one after the other. */
class chooser
{
public:
    explicit chooser(const wish &wanted)
        : wanted_(wanted), base_step_(sensor_figure("base_step")), far_(wanted.farthest_m),
          rate_(wanted.frame_rate.value_or(default_frame_rate))
    {
    }

    /** Chooses everything. */
    choice choose()
    {
        choose_profile();
        choose_prf();
        choose_points(good_points_per_pulse);
        config_["hwaas"] = 1;
        if (wanted_.greatest_velocity)
        {
            choose_sweep_rate();
            choose_sweeps();
        }
        limit_rate();
        choose_hwaas();
        explain_all();
        result_.configuration = document();
        return std::move(result_);
    }

private:
    /** Adds a part that cannot be met. */
    void miss(const char *what, const char *unit, double asked, double nearest, std::string reason)
    {
        result_.shortfalls.push_back({what, unit, asked, nearest, std::move(reason)});
    }

    /** Explains the value of a member of the configuration. */
    void explain(const char *member, std::string reason)
    {
        result_.decisions.push_back({member, config_[member], std::move(reason)});
    }

    /** The document with the members chosen so far. */
    [[nodiscard]] ordered_json document() const
    {
        auto group = ordered_json::array();
        for (const auto sensor : wanted_.sensors)
        {
            group.push_back({{"sensor_id", sensor}, {"config", config_}});
        }
        return {{"max_update_rate", to_number(rate_)}, {"groups", ordered_json::array({std::move(group)})}};
    }

    /** The figures of the document. */
    [[nodiscard]] session_plan figures() const
    {
        return plan(nlohmann::json(document()));
    }

    void choose_profile()
    {
        const int most = member_schema("profile")["maximum"];
        int chosen = wanted_.resolution_m ? most : member_schema("profile")["default"].get<int>();
        const double separation = sensor_figure("separation");
        const auto separates = [&] {
            return !wanted_.resolution_m ||
                   *pulse_width(chosen) * separation <= *wanted_.resolution_m * (1.0 + rounding_error);
        };
        while (chosen > 1 && !separates())
        {
            --chosen;
        }
        width_ = *pulse_width(chosen);
        config_["profile"] = chosen;
        profile_reason_ = wanted_.resolution_m ? "the longest pulse that separates the targets"
                                               : "the default; choose another one with --resolution";
        if (!separates())
        {
            profile_reason_ = "the shortest pulse";
            miss("resolution", "m", *wanted_.resolution_m, width_ * separation,
                 "the shortest pulse is " + short_text(width_) + " m wide");
        }
    }

    void choose_prf()
    {
        for (const std::string prf : member_schema("prf")["enum"])
        {
            config_["prf"] = prf;
            farthest_point_ = sensor_figure("farthest_point", prf);
            if (farthest_point_ * base_step_ >= wanted_.farthest_m - rounding_error)
            {
                return;
            }
        }
        far_ = farthest_point_ * base_step_;
        miss("distance", "m", wanted_.farthest_m, far_,
             "echoes from farther away arrive after the next pulse");
    }

    void choose_points(double points_per_pulse)
    {
        const double step = std::max(1.0, std::floor(width_ / points_per_pulse / base_step_));
        const double near = std::min(wanted_.nearest_m.value_or(default_nearest_m()), far_);
        double start = std::floor(near / base_step_ + rounding_error);
        const double count = std::ceil((far_ / base_step_ - start) / step - rounding_error) + 1.0;
        const double last = start + (count - 1.0) * step;
        start -= std::max(0.0, last - farthest_point_);
        config_["start_point"] = std::lround(start);
        config_["step_length"] = std::lround(step);
        config_["num_points"] = std::lround(count);
    }

    /** The first distance if none is wanted. */
    [[nodiscard]] double default_nearest_m() const
    {
        return std::min(default_nearest, wanted_.farthest_m / 2.0);
    }

    /** Sets the sweep rate for the greatest velocity. */
    void choose_sweep_rate()
    {
        double sweep_rate = sweep_rate_for(*wanted_.greatest_velocity);
        if (figures().items[0].max_sweep_rate < sweep_rate || sweeps_that_fit() < fewest_sweeps_of_spectrum)
        {
            choose_points(least_points_per_pulse);
        }
        const double highest = std::floor(figures().items[0].max_sweep_rate);
        sweep_rate_reason_ = "unambiguous up to a quarter more than the greatest velocity";
        if (highest < sweep_rate * (1.0 - rounding_error))
        {
            sweep_rate_reason_ = "the highest one with these points";
            miss("greatest velocity", "m/s", *wanted_.greatest_velocity, velocity_with(highest),
                 "a sweep takes longer with these points");
        }
        const double lowest = member_schema("sweep_rate")["anyOf"][1]["minimum"];
        sweep_rate = std::max(std::min(sweep_rate, highest), lowest);
        config_["sweep_rate"] = to_number(raised(sweep_rate, highest));
    }

    /** A sweep rate, raised if a frame has enough sweeps then, at the wanted frame rate. */
    double raised(double sweep_rate, double highest)
    {
        const double left = measuring_share / rate_ - figures().items[0].frame_s;
        const double needed = std::ceil(fewest_sweeps_of_spectrum / left);
        const bool helps = wanted_.frame_rate && left > 0.0 && needed > sweep_rate &&
                           needed <= std::min(highest, most_raise * sweep_rate);
        if (helps)
        {
            sweep_rate_reason_ =
                "higher than the velocity needs, so that a frame has enough sweeps for a spectrum";
        }
        return helps ? needed : sweep_rate;
    }

    /** The most sweeps whose samples a frame can have. */
    [[nodiscard]] double sweeps_that_fit() const
    {
        return std::min(std::floor(sensor_figure("most_samples") / config_["num_points"].get<double>()),
                        member_schema("sweeps_per_frame")["maximum"].get<double>());
    }

    /** Sets the number of sweeps for the smallest velocity. */
    void choose_sweeps()
    {
        const double sweep_rate = config_["sweep_rate"];
        const double slowest = 2.0 * velocity_bound(sweep_rate);
        const double wanted = wanted_.smallest_velocity
                                  ? std::ceil(slowest / *wanted_.smallest_velocity - rounding_error)
                                  : default_sweeps;
        const double fewest = std::min<double>(fewest_sweeps_of_spectrum, sweeps_that_fit());
        const double sweeps = std::clamp(wanted, fewest, std::max(fewest, most_sweeps(sweep_rate)));
        config_["sweeps_per_frame"] = std::lround(sweeps);
        if (wanted_.smallest_velocity && sweeps < wanted)
        {
            miss("smallest velocity", "m/s", *wanted_.smallest_velocity, slowest / sweeps,
                 "more sweeps do not fit in a frame");
        }
        if (sweeps < fewest_sweeps_of_spectrum)
        {
            miss("velocity spectrum", "sweeps", fewest_sweeps_of_spectrum, sweeps,
                 "a frame cannot have more samples");
        }
    }

    /** The most sweeps that a frame can have, in size and time. */
    [[nodiscard]] double most_sweeps(double sweep_rate) const
    {
        const double left = measuring_share / rate_ - figures().items[0].frame_s;
        return std::min(std::floor(left * sweep_rate), sweeps_that_fit());
    }

    /** Lowers the frame rate to one that sensor and link keep. */
    void limit_rate()
    {
        const auto session = figures();
        const double possible = lasting_frame_rate(session, wanted_.baudrate);
        rate_reason_ = wanted_.frame_rate ? "the frame rate" : "the default; choose another one with --rate";
        if (possible >= rate_)
        {
            return;
        }
        const char *reason = lasting_frame_rate(session, std::nullopt) >= rate_
                                 ? "a frame is measured, and then sent over the link, which takes longer"
                                 : "a frame takes longer with these points and sweeps";
        rate_reason_ = reason;
        const double scale = std::pow(10.0, 2.0 - std::floor(std::log10(possible)));
        rate_ = std::floor(possible * scale) / scale;
        if (wanted_.frame_rate)
        {
            miss("rate", "Hz", *wanted_.frame_rate, rate_, reason);
        }
    }

    /** Whether the configuration keeps sweep rate and frame rate; more pulses than needed take half of the
     * time. */
    [[nodiscard]] bool is_fast_enough() const
    {
        const auto session = figures();
        const auto &item = session.items[0];
        const bool is_measured = item.paced_sweeps ? item.max_sweep_rate >= item.sweep_rate
                                                   : session.max_frame_rate >= rate_ * 2.0;
        return is_measured && lasting_frame_rate(session, wanted_.baudrate) >= rate_;
    }

    /** Why the number of pulses was chosen. */
    [[nodiscard]] std::string hwaas_reason() const
    {
        if (config_["hwaas"] == member_schema("hwaas")["maximum"].get<int>())
        {
            return "the most pulses for each point, for the least noise";
        }
        if (config_["hwaas"] == 1)
        {
            return "more pulses for each point take too long";
        }
        const std::string limit = wanted_.baudrate                 ? "fit in a frame period beside sending"
                                  : config_.contains("sweep_rate") ? "sweep rate and frame rate allow"
                                                                   : "fit in half of the frame period";
        return "as many pulses for each point as " + limit + ", for the least noise";
    }

    /** Why the first point was chosen. */
    [[nodiscard]] std::string start_reason() const
    {
        return wanted_.nearest_m
                   ? "the nearest distance"
                   : "from " + short_text(default_nearest_m()) +
                         " m; choose another distance with --distance 0.." + short_text(wanted_.farthest_m);
    }

    void choose_hwaas()
    {
        int good = 1;
        int too_high = member_schema("hwaas")["maximum"].get<int>() + 1;
        while (too_high - good > 1)
        {
            const int middle = (good + too_high) / 2;
            config_["hwaas"] = middle;
            (is_fast_enough() ? good : too_high) = middle;
        }
        config_["hwaas"] = good;
    }

    void explain_all()
    {
        explain("profile", profile_reason_);
        explain("prf", far_ < wanted_.farthest_m
                           ? "the lowest one: it reaches farthest"
                           : "the highest one with unambiguous echoes from the farthest distance");
        explain("start_point", start_reason());
        explain("step_length", "a part of the pulse width");
        explain("num_points", "up to the farthest distance");
        if (config_.contains("sweep_rate"))
        {
            explain("sweep_rate", sweep_rate_reason_);
            explain("sweeps_per_frame", "more sweeps separate smaller velocities");
        }
        explain("hwaas", hwaas_reason());
        result_.decisions.push_back({"max_update_rate", to_number(rate_), rate_reason_});
    }

    const wish &wanted_;
    double base_step_;
    double far_;                  /**< distance of the last point, in metres */
    double rate_;                 /**< in frames per second */
    double width_ = 0.0;          /**< of the pulse, in metres */
    double farthest_point_ = 0.0; /**< of the pulse repetition frequency, in base steps */
    std::string profile_reason_;
    std::string sweep_rate_reason_;
    std::string rate_reason_;
    ordered_json config_;
    choice result_;
};

} // namespace

std::string to_string(const shortfall &part)
{
    return part.wish + " " + short_text(part.asked) + " " + part.unit + " is not possible: " + part.reason +
           "; the nearest is " + short_text(part.nearest) + " " + part.unit;
}

choice choose_configuration(const wish &wanted)
{
    return chooser(wanted).choose();
}

} // namespace vantor
