-- wrk script of bench/run.sh: POSTs one body file (the argument after --) and
-- prints requests per second and the latency percentiles on one line.
local body = ""

function init(args)
    local f = assert(io.open(args[1], "rb"))
    body = f:read("*a")
    f:close()
end

function request()
    return wrk.format("POST", nil, {["Content-Type"] = "application/soap+xml; charset=utf-8"}, body)
end

function done(summary, latency, requests)
    local seconds = summary.duration / 1e6
    io.write(string.format("RESULT %d %.3f %.3f %.3f %d\n", summary.requests, summary.requests / seconds,
        latency:percentile(50) / 1000, latency:percentile(99) / 1000,
        summary.errors.status + summary.errors.connect + summary.errors.read + summary.errors.timeout))
end
