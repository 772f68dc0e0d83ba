%% shapes
-module(shapes).
-export([area/1]).
area({sq, S}) when S > 0 -> S * S;
area(Other) -> io:format("bad: ~p~n\"", ['Other']),
    Q = $", ok.
