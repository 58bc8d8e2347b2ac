-- For wrk: a user after the other asks about its own task, at a steady rate; each answer is looked at.
-- Arguments: a file with lines "TOKEN PATH", and requests a second.
local ffi = require("ffi")
ffi.cdef("typedef struct { long s, us; } timeval; int gettimeofday(timeval *, void *);")

local requests, asked, pause, due, threads = {}, 0, 0, 0, {}
local clock = ffi.new("timeval")
wrong = 0

function setup(thread)
  threads[#threads + 1] = thread
end

function init(arguments)
  for line in io.lines(arguments[1]) do
    local token, path = line:match("(%S+) (%S+)")
    requests[#requests + 1] = wrk.format("GET", path, { Authorization = "Bearer " .. token })
  end
  pause = 1000 / tonumber(arguments[2])
end

-- What was late is caught up with, but no more than a second of it.
function delay()
  ffi.C.gettimeofday(clock, nil)
  local now = tonumber(clock.s) * 1000 + tonumber(clock.us) / 1000
  due = math.max(due + pause, now - 1000)
  return math.max(0, due - now)
end

function request()
  asked = asked + 1
  return requests[asked % #requests + 1]
end

function response(_, _, body)
  if not body:find('"finished":false', 1, true) then
    wrong = wrong + 1
  end
end

function done()
  local sum = 0
  for _, thread in ipairs(threads) do
    sum = sum + thread:get("wrong")
  end
  print("wrong answers: " .. sum)
end
