<?php
if (!function_exists('fib')) {
    function fib($n)
    {
        return $n < 2 ? $n : fib($n - 1) + fib($n - 2);
    }
}
?>
<?= fib(22) ?>

