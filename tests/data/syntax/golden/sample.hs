{- totals -}
module Main where
import Data.List (foldl')
-- entry
main :: IO ()
main = putStrLn (show (foldl' (+) 0 [1, 2]) ++ "\"done\"") >> print 'x'
